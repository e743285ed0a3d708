#include "kind-names.h"
#include "wire-rules.h"

#include <nlohmann/json.hpp>

namespace schema {
namespace {

using Json = nlohmann::ordered_json;

Json toJson(const std::vector<Field>& fields) {
    Json list = Json::array();
    for (const auto& field : fields) {
        Json entry{{"name", field.name},
                   {"offset", field.offset},
                   {"size", field.type.size},
                   {"kind", nameOf(field.type.kind).name}};
        if (field.type.kind == Kind::Scalar) entry["signed"] = field.type.isSigned;
        if (field.type.record) entry["record"] = field.type.record;
        if (*field.meaning) entry["meaning"] = field.meaning;
        if (field.values) entry["enumeration"] = field.values->name;
        list.push_back(std::move(entry));
    }
    return list;
}

Json toJson(const Message& message) {
    return {{"name", message.name},
            {"direction", message.direction},
            {"method", message.method},
            {"signature", message.signature},
            {"meta",
             {{"instance", message.meta.instance},
              {"interfaceCode", message.meta.interfaceCode},
              {"messageId", message.meta.messageId},
              {"flag", message.meta.flag}}},
            {"size", message.table->size},
            {"arguments", toJson(message.arguments)}};
}

Json toJson(const Record& record) {
    return {{"name", record.name},
            {"family", record.family},
            {"size", record.table->size},
            {"fields", toJson(record.fields)}};
}

Json toJson(const genrpc::Enumeration* enumeration) {
    Json values = Json::array();
    for (const auto& [number, name, meaning] : enumeration->values)
        values.push_back({{"number", number}, {"name", name}, {"meaning", meaning}});
    return {{"name", enumeration->name},
            {"title", enumeration->title},
            {"about", enumeration->about},
            {"values", std::move(values)}};
}

template <class List> Json listOf(const List& list) {
    Json array = Json::array();
    for (const auto& element : list) array.push_back(toJson(element));
    return array;
}

} // namespace

std::string asJson() {
    Json meanings = Json::object(), all = Json::array();
    for (const auto& kind : kinds) meanings[kind.name] = kind.meaning;
    for (const auto& service : services())
        all.push_back(
            {{"name", service.name}, {"messages", listOf(service.messages)}, {"records", listOf(service.records)}});
    return Json{{"version", version},
                {"wire", wireRules},
                {"kinds", meanings},
                {"enumerations", listOf(enumerations())},
                {"services", all}}
               .dump(1) +
           "\n";
}

} // namespace schema
