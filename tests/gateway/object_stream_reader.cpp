#include "object_stream_reader.h"

#include <map>

namespace krvgwtest {
namespace {

struct Reader {
    const Bytes& data;
    std::size_t at;
    std::string problem;
    std::uint32_t nextHandle = 0x7E0000;
    std::map<std::uint32_t, StreamClass> classes;        // by handle
};

void blame(Reader& reader, const std::string& what)
{
    if (reader.problem.empty()) reader.problem = what + " at offset " + std::to_string(reader.at);
}

std::uint64_t number(Reader& reader, std::size_t width)
{
    if (width > reader.data.size() - reader.at) {
        blame(reader, "end of data");
        return 0;
    }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = (value << 8) | reader.data[reader.at + i];
    reader.at += width;
    return value;
}

void expect(Reader& reader, std::size_t width, std::uint64_t wanted, const std::string& what)
{
    if (number(reader, width) != wanted) blame(reader, "no " + what);
}

std::string characters(Reader& reader, std::size_t count)
{
    if (count > reader.data.size() - reader.at) {
        blame(reader, "end of data");
        return "";
    }
    const auto from = reader.data.begin() + static_cast<std::ptrdiff_t>(reader.at);
    reader.at += count;
    return std::string(from, from + static_cast<std::ptrdiff_t>(count));
}

// What stands behind TC_CLASSDESC.
StreamClass readNewClass(Reader& reader)
{
    StreamClass made;
    made.name = characters(reader, number(reader, 2));
    number(reader, 8);                                   // serialVersionUID
    const std::uint32_t handle = reader.nextHandle++;
    expect(reader, 1, 0x0C, "externalizable class with block data");
    expect(reader, 2, 0, "class without fields");
    expect(reader, 1, 0x78, "end of the class annotation");
    const std::uint64_t next = number(reader, 1);
    if (next == 0x72)
        made.superclass = readNewClass(reader).name;
    else if (next != 0x70)
        blame(reader, "neither superclass nor null");
    reader.classes[handle] = made;
    return made;
}

StreamObject readObject(Reader& reader);

void readContents(Reader& reader, StreamObject& object)
{
    while (reader.problem.empty()) {
        const std::uint64_t type = number(reader, 1);
        switch (type) {
        case 0x78: return;
        case 0x70: break;
        case 0x73: object.objects.push_back(readObject(reader)); break;
        case 0x74:
            object.texts.push_back(characters(reader, number(reader, 2)));
            ++reader.nextHandle;
            break;
        case 0x77:
        case 0x7A: {
            const std::size_t size = number(reader, type == 0x7A ? 4 : 1);
            object.blocks.push_back({type == 0x7A, size});
            object.blockData += characters(reader, size);
            break;
        }
        default: blame(reader, "unknown type " + std::to_string(type));
        }
    }
}

// What stands behind TC_OBJECT.
StreamObject readObject(Reader& reader)
{
    StreamObject object;
    const std::uint64_t type = number(reader, 1);
    if (type == 0x72) {
        object.isClassSpelledOut = true;
        object.className = readNewClass(reader).name;
    } else if (type == 0x71) {
        const auto found = reader.classes.find(static_cast<std::uint32_t>(number(reader, 4)));
        if (found == reader.classes.end())
            blame(reader, "handle of no class");
        else
            object.className = found->second.name;
    } else {
        blame(reader, "object without a class");
    }
    ++reader.nextHandle;
    readContents(reader, object);
    return object;
}

}  // namespace

ReadStream readObjectStream(const Bytes& data, std::size_t at)
{
    Reader reader{data, at, "", 0x7E0000, {}};
    expect(reader, 2, 0xACED, "stream magic");
    expect(reader, 2, 5, "stream version 5");
    expect(reader, 1, 0x73, "object");
    ReadStream read;
    read.object = readObject(reader);
    read.size = reader.at - at;
    read.problem = reader.problem;
    return read;
}

}  // namespace krvgwtest
