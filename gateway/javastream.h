// Responses as a Java process would serialise them (Java Object Serialization Stream Protocol, version 5).
//
// Each response is an object of an externalizable class, written by an object output stream of its own:
//
//   AC ED 00 05   stream magic, stream version
//   73            TC_OBJECT
//   72            TC_CLASSDESC                           6 bytes in front of the class name
//   LL LL ...     class name                             L1
//   8 bytes       serialVersionUID
//   0C            SC_EXTERNALIZABLE | SC_BLOCK_DATA
//   00 00         no fields
//   78            TC_ENDBLOCKDATA, end of class annotation
//   72            TC_CLASSDESC of the superclass         8 + 1 + 2 + 1 + 1 = 13 bytes
//   LL LL ...     superclass name                        L2
//   8 bytes       serialVersionUID
//   0C            flags
//   00 00         no fields
//   78            TC_ENDBLOCKDATA
//   70            TC_NULL, no further superclass         13 bytes
//   77 LL         TC_BLOCKDATA, or                       2 bytes
//   7A LL LL LL LL  TC_BLOCKDATALONG above 255 bytes     5 bytes
//   in the block:
//     LL LL ...   query element
//     4 bytes     return code
//     4 bytes     number of elements                     only if the return code is not negative
//     (LL LL ...) the ids                                only in a response with ids
//   ...           the statistics, see below              only in a response with statistics
//   78            TC_ENDBLOCKDATA, end of the object     1 byte
//
// Handles count from 7E0000: class 7E0000, superclass 7E0001, the response 7E0002.
//
// The first statistic spells out its class, which so gets the handle 7E0003:
//
//   73 72         TC_OBJECT, TC_CLASSDESC                2 bytes in front of the class name
//   LL LL ...     class name                             L3
//   8 bytes       serialVersionUID
//   0C 00 00 78 70  flags, no fields, end of annotation, no superclass    5 bytes up to the block type
//   77 ... / 7A ...  id and value, in blocks
//   78            TC_ENDBLOCKDATA, end of this statistic
//   73 or 78      TC_OBJECT of the next one, or the end of the response   2 bytes behind the statistic
//
// and each further one refers to it:
//
//   (73)          TC_OBJECT, counted above as the end of its predecessor
//   71 00 7E 00 03  TC_REFERENCE to the class            5 bytes up to the block type
//
// So both forms stand on the same fixed widths. A response without a statistic has no class to spell out, but
// readers pass over the same widths; it carries, as legal content of the stream,
//
//   70 74         TC_NULL, TC_STRING                     2 bytes
//   LL LL ...     the class name as a text               L3
//   77 05 00 00 00 00 00  a block of five zeros
//   78            TC_ENDBLOCKDATA, end of the response   8 bytes
//
// Blocks: Java closes a block at 1024 bytes and uses the short form up to 255. Readers take three blocks whole,
// which therefore are never divided: the one with the query element, with the ids in it, and the first one of a
// statistic as far as its id and the length of its value reach.
#pragma once

#include "catalogue.h"
#include "wire.h"

namespace krvgw {

void putStatsResponse(Message& message, const Response& response);
void putIdsResponse(Message& message, const Response& response);

// A text serialised by a stream of its own: AC ED 00 05, 74 (TC_STRING), length, bytes.
void putStringStream(Message& message, std::string_view text, Field lengthField);

}  // namespace krvgw
