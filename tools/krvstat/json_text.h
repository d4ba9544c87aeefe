// Texts of a gateway in JSON and back.
#ifndef KRVSTAT_JSON_TEXT_H
#define KRVSTAT_JSON_TEXT_H

#include <nlohmann/json.hpp>

#include <string>

constexpr int SchemaVersion = 1; // of everything in JSON; docs/krvstat-output.schema.json describes it

using Json = nlohmann::ordered_json;

// Adds the text as a member. Bytes that are no UTF-8 become replacement characters, and the member NAME_base64 then has
// all bytes of the text.
void addText(Json* object, const std::string& name, const std::string& text);

// The text with replacement characters where it is no UTF-8.
std::string toUtf8(const std::string& text);

// The text of such a member. Returns false if there is none.
bool takeText(const Json& object, const std::string& name, std::string* text);

// Everything of krvstat in JSON is written by this; isAscii: with \u for all that is not ASCII.
std::string jsonText(const Json& json, bool isAscii, int indent = -1);

#endif
