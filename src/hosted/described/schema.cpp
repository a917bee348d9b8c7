// hosted/described/schema.cpp - a program that prints the JSON schema of machine files, but for their comments, which
// JSON does not have.
#include <algorithm>
#include <cstdio>

#include "hosted/described/fields.h"
#include "hosted/described/format.h"
#include "platform/protocol/registry.h"

namespace hosted::described {
namespace {

// The definitions that the tables refer to. The length of the longest key name goes between the two parts.
constexpr char BEGIN[] = R"({
  "$schema": "https://json-schema.org/draft/2019-09/schema",
  "title": "Machine file",
  "$ref": "#/$defs/machine",
  "$defs": {
    "digits": {"type": "string", "pattern": "^-?(0[xX][0-9a-fA-F]+|[0-9]+)$"},
    "number": {"anyOf": [{"type": "integer"}, {"$ref": "#/$defs/digits"}]},
    "hex": {"type": "string", "pattern": "^([ \\t\\n\\r]*[0-9a-fA-F]{2})*[ \\t\\n\\r]*$"},
    "bytes": {"type": "object", "properties": {"hex": {"$ref": "#/$defs/hex"}}, "required": ["hex"],
      "additionalProperties": false},
    "text": {"anyOf": [{"type": "string"}, {"$ref": "#/$defs/bytes"}]},
    "item": {"anyOf": [{"$ref": "#/$defs/number"}, {"type": "object", "properties": {"error": {"$ref": "#/$defs/number"}},
      "required": ["error"], "additionalProperties": false}]},
    "directory": {"type": "object", "propertyNames": {"pattern": "^[^/]{1,)";
constexpr char AFTER_NAME_LENGTH[] = R"(}$"},
      "additionalProperties": {"$ref": "#/$defs/entry"}},
    "entry": {"anyOf": [{"type": "integer"}, {"$ref": "#/$defs/text"},
      {"type": "object", "minProperties": 1, "maxProperties": 1, "additionalProperties": false,
        "properties": {"dir": {"$ref": "#/$defs/directory"}, "tmp": {"$ref": "#/$defs/directory"},
          "unreadable": {"$ref": "#/$defs/entry"}}},
      {"type": "object", "minProperties": 1, "additionalProperties": false,
        "properties": {"type": {"$ref": "#/$defs/number"}, "length": {"$ref": "#/$defs/number"},
          "value": {"$ref": "#/$defs/entry"}}}]},
)";

constexpr std::pair<naming, std::string_view> key_definitions[] = {
    {naming::state, "state_item"},       {naming::object, "object_item"}, {naming::data_group, "data_group"},
    {naming::service_type, "data_type"}, {naming::none, "digits"},
};

std::string word_list(std::span<const std::string_view> words) {
    json_writer out;
    out.begin_list();
    for (const auto word : words) out.text(word);
    out.end();
    return out.take();
}

}  // namespace

std::string describe_fields(std::span<const field> fields) {
    std::string properties;
    std::vector<std::string_view> required;
    for (const field &listed : fields) {
        if (!properties.empty()) properties += ",\n";
        properties += '"' + std::string(listed.key) + "\": " + listed.format->describe();
        if (listed.required) required.push_back(listed.key);
    }
    return R"({"type": "object", "properties": {)" + properties + R"(}, "required": )" + word_list(required) +
           R"(, "additionalProperties": false})";
}

std::string describe_row(std::span<const field> fields) {
    const std::string count = std::to_string(fields.size());
    std::string items;
    for (const field &listed : fields) items += (items.empty() ? "" : ", ") + listed.format->describe();
    return R"({"type": "array", "minItems": )" + count + R"(, "maxItems": )" + count + R"(, "items": [)" + items + "]}";
}

std::string describe_reference(std::string_view name) { return R"({"$ref": "#/$defs/)" + std::string(name) + "\"}"; }

std::string describe_words(std::span<const std::string_view> words) { return R"({"enum": )" + word_list(words) + "}"; }

std::string describe_any(std::initializer_list<std::string> alternatives) {
    std::string any;
    for (const auto &each : alternatives) any += (any.empty() ? "" : ", ") + each;
    return R"({"anyOf": [)" + any + "]}";
}

std::string_view key_definition(naming kind) {
    return std::find_if(std::begin(key_definitions), std::end(key_definitions),
                        [&](const auto &each) { return each.first == kind; })
        ->second;
}

}  // namespace hosted::described

int main() {
    using namespace hosted::described;
    std::string schema = BEGIN + std::to_string(REG_MAX_NAME) + AFTER_NAME_LENGTH;
    for (const auto &[kind, name] : key_definitions) {
        const auto words = item_names(kind);
        if (words.empty()) continue;
        const auto number = describe_reference(kind == naming::service_type ? "number" : "digits");
        schema += '"' + std::string(name) + "\": " + describe_any({number, describe_words(words)}) + ",\n";
    }
    schema += "\"machine\": " + machine_format().describe() + "}}\n";
    std::fputs(schema.c_str(), stdout);
}
