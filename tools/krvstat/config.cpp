#include "config.h"

#include "files.h"
#include "printable.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <string_view>

namespace {

constexpr std::string_view SettingNames[] = {
    "timeout", "connect-timeout", "output", "columns", "units", "time", "utc", "color", "sort", "interval"};

bool isSetting(const std::string& name)
{
    return std::find(std::begin(SettingNames), std::end(SettingNames), name) != std::end(SettingNames);
}

std::string atLine(const YAML::Node& node)
{
    return fmt::format("line {}", node.Mark().line + 1);
}

std::string unknownKey(const YAML::Node& key)
{
    return fmt::format("{}: there is no setting {}", atLine(key), inQuotes(key.as<std::string>()));
}

std::string readScalar(const YAML::Node& key, const YAML::Node& value, std::string* text)
{
    if (!value.IsScalar()) {
        return fmt::format("{}: {} has to be a single text", atLine(key), inQuotes(key.as<std::string>()));
    }
    *text = value.as<std::string>();
    return "";
}

std::string readTexts(const YAML::Node& key, const YAML::Node& list, std::vector<std::string>* texts)
{
    if (list.IsScalar()) {
        texts->push_back(list.as<std::string>());
        return "";
    }
    if (!list.IsSequence()) return fmt::format("{}: targets of a context have to be a list", atLine(key));
    for (const YAML::Node& each : list) {
        if (!each.IsScalar()) return fmt::format("{}: a target has to be a text", atLine(each));
        texts->push_back(each.as<std::string>());
    }
    return "";
}

std::string readContext(const YAML::Node& map, ConfigSettings* settings)
{
    if (!map.IsMap()) return fmt::format("{}: a context has to be a map", atLine(map));
    std::string problem;
    for (const auto& each : map) {
        const YAML::Node& key = each.first;
        const YAML::Node& value = each.second;
        const std::string name = key.as<std::string>();
        if (name == "targets") problem = readTexts(key, value, &settings->targets);
        else if (isSetting(name)) problem = readScalar(key, value, &settings->texts[name]);
        else problem = unknownKey(key);
        if (!problem.empty()) break;
    }
    return problem;
}

std::string readContexts(const YAML::Node& key, const YAML::Node& map, Config* config)
{
    if (!map.IsMap()) return fmt::format("{}: contexts have to be a map", atLine(key));
    for (const auto& each : map) {
        std::string problem = readContext(each.second, &config->contexts[each.first.as<std::string>()]);
        if (!problem.empty()) return problem;
    }
    return "";
}

std::string readTargets(const YAML::Node& key, const YAML::Node& map, Config* config)
{
    if (!map.IsMap()) return fmt::format("{}: targets have to be a map of names", atLine(key));
    for (const auto& each : map) {
        std::string problem = readScalar(each.first, each.second, &config->targets[each.first.as<std::string>()]);
        if (!problem.empty()) return problem;
    }
    return "";
}

std::string readTop(const YAML::Node& top, Config* config)
{
    if (top.IsNull()) return ""; // an empty file
    if (!top.IsMap()) return "it has to be a map";
    for (const auto& each : top) {
        const YAML::Node& key = each.first;
        const YAML::Node& value = each.second;
        const std::string name = key.as<std::string>();
        std::string problem;
        if (name == "targets") problem = readTargets(key, value, config);
        else if (name == "contexts") problem = readContexts(key, value, config);
        else if (name == "context") problem = readScalar(key, value, &config->context.emplace());
        else if (isSetting(name)) problem = readScalar(key, value, &config->settings.texts[name]);
        else problem = unknownKey(key);
        if (!problem.empty()) return problem;
    }
    return "";
}

} // namespace

std::string readConfig(const std::string& path, Config* config)
{
    std::string content;
    const std::string problem = readFile(path, &content);
    if (!problem.empty()) return problem;
    try {
        return readTop(YAML::Load(content), config);
    } catch (const YAML::Exception& error) {
        return printable(error.what()).text;
    }
}
