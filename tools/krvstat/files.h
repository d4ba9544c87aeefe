// Whole files as texts.
#ifndef KRVSTAT_FILES_H
#define KRVSTAT_FILES_H

#include <string>

// "-" is standard input. Returns an empty string, or why the file cannot be read.
std::string readFile(const std::string& path, std::string* content);

#endif
