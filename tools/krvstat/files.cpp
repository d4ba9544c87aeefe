#include "files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

std::string readStream(std::FILE* stream, std::string* content)
{
    char part[65536];
    std::size_t count = 0;
    while ((count = std::fread(part, 1, sizeof part, stream)) > 0) content->append(part, count);
    return std::ferror(stream) != 0 ? std::strerror(errno) : "";
}

} // namespace

std::string readFile(const std::string& path, std::string* content)
{
    content->clear();
    if (path == "-") return readStream(stdin, content);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file) return std::strerror(errno);
    return readStream(file.get(), content);
}
