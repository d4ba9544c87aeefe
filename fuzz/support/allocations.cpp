// See allocations.h.
#include "allocations.h"

#include <cerrno>
#include <cstdlib>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void __wrap_free(void* block);
}

namespace krvfuzz {

namespace {

bool refuses(std::size_t size)
{
    if (size > largestBlock) {
        errno = ENOMEM;
        return true;
    }
    const int number = allocations.seen++;
    if (allocations.failFrom < 0 || number < allocations.failFrom || number - allocations.failFrom >= allocations.failFor)
        return false;
    allocations.failed++;
    errno = ENOMEM;
    return true;
}

void* counted(void* block)
{
    if (block) allocations.live++;
    return block;
}

} // namespace

void* ownBlock(std::size_t size)
{
    return counted(__real_malloc(size));
}

void releaseBlock(void* block)
{
    __wrap_free(block);
}

} // namespace krvfuzz

extern "C" {

void* __wrap_malloc(std::size_t size)
{
    return krvfuzz::refuses(size) ? nullptr : krvfuzz::counted(__real_malloc(size));
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return krvfuzz::refuses(count * size) ? nullptr : krvfuzz::counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* block, std::size_t size)
{
    if (krvfuzz::refuses(size)) return nullptr;
    void* moved = __real_realloc(block, size);
    return block ? moved : krvfuzz::counted(moved);
}

void __wrap_free(void* block)
{
    if (block) krvfuzz::allocations.live--;
    __real_free(block);
}

} // extern "C"
