#include "json_text.h"

#include "base64.h"

namespace {

bool isUtf8(const std::string& text)
{
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

} // namespace

void addText(Json* object, const std::string& name, const std::string& text)
{
    (*object)[name] = text; // replaced by jsonText where it is no UTF-8
    if (!isUtf8(text)) (*object)[name + "_base64"] = toBase64(text);
}

std::string toUtf8(const std::string& text)
{
    return isUtf8(text) ? text : Json::parse(jsonText(text, false)).get<std::string>();
}

bool takeText(const Json& object, const std::string& name, std::string* text)
{
    const auto bytes = object.find(name + "_base64");
    if (bytes != object.end() && bytes->is_string()) return fromBase64(bytes->get_ref<const std::string&>(), text);
    const auto plain = object.find(name);
    if (plain == object.end() || !plain->is_string()) return false;
    *text = plain->get<std::string>();
    return true;
}

std::string jsonText(const Json& json, bool isAscii, int indent)
{
    return json.dump(indent, ' ', isAscii, Json::error_handler_t::replace);
}
