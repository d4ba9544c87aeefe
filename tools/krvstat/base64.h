// Bytes as letters, for JSON, which cannot hold them otherwise.
#ifndef KRVSTAT_BASE64_H
#define KRVSTAT_BASE64_H

#include <string>
#include <string_view>

std::string toBase64(std::string_view bytes);

// Returns false, and leaves *bytes alone, if the text is not base64.
bool fromBase64(std::string_view text, std::string* bytes);

#endif
