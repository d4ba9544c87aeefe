// Reads what a Java object input stream would: grammar, class descriptors, handles, blocks. Knows only what the
// gateway may use: externalizable classes without fields, texts, nulls, references, block data.
#pragma once

#include "wire_bytes.h"

namespace krvgwtest {

using krvtest::Bytes;

struct StreamClass {
    std::string name;
    std::string superclass;      // empty: none
};

struct StreamBlock {
    bool isLong = false;
    std::size_t size = 0;
};

struct StreamObject {
    std::string className;
    bool isClassSpelledOut = false;      // else by a handle
    std::string blockData;               // of all its blocks
    std::vector<StreamBlock> blocks;
    std::vector<StreamObject> objects;   // nested ones, in order
    std::vector<std::string> texts;
};

struct ReadStream {
    StreamObject object;
    std::size_t size = 0;                // bytes from AC ED to the end of the object
    std::string problem;                 // empty: well-formed
};

// Reads one stream that holds one object, from offset `at`.
ReadStream readObjectStream(const Bytes& data, std::size_t at);

}  // namespace krvgwtest
