/* The set of one descriptor that select() waits for, whatever its number.
 *
 * An fd_set ends at descriptor 1023, and its macros abort beyond that in a fortified build, while select() itself takes
 * sets of any size. So the bits are kept here: in place for ordinary descriptors, in a block of their own above.
 */
#ifndef STAPI_KRV_DESCRIPTORSET_H
#define STAPI_KRV_DESCRIPTORSET_H

#include <stdlib.h>
#include <string.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DESCRIPTORS_PER_WORD ((int)(8 * sizeof(unsigned long)))

typedef struct _DescriptorSet {
    union {
        fd_set set;
        unsigned long words[FD_SETSIZE / (8 * sizeof(unsigned long))];
    } inPlace;
    unsigned long* words; /* inPlace.words, or a block of its own */
} DescriptorSet;

/* Makes a set that holds just the descriptor (0 or more). 0, or -1 without memory. */
static inline int makeDescriptorSet(DescriptorSet* set, int descriptor)
{
    if (descriptor < FD_SETSIZE) {
        memset(&set->inPlace, 0, sizeof set->inPlace);
        set->words = set->inPlace.words;
    } else {
        set->words = (unsigned long*)calloc((size_t)(descriptor / DESCRIPTORS_PER_WORD) + 1, sizeof *set->words);
        if (!set->words) return -1;
    }
    set->words[descriptor / DESCRIPTORS_PER_WORD] |= 1ul << (descriptor % DESCRIPTORS_PER_WORD);
    return 0;
}

static inline int holdsDescriptor(const DescriptorSet* set, int descriptor)
{
    return (set->words[descriptor / DESCRIPTORS_PER_WORD] >> (descriptor % DESCRIPTORS_PER_WORD)) & 1ul ? 1 : 0;
}

/* What select() takes. */
static inline fd_set* asFdSet(DescriptorSet* set)
{
    return (fd_set*)(void*)set->words;
}

static inline void freeDescriptorSet(DescriptorSet* set)
{
    if (set->words != set->inPlace.words) free(set->words);
    set->words = NULL;
}

#ifdef __cplusplus
}
#endif

#endif
