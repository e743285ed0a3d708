// Every record, field by field: the names in its text and the fields that its comparison covers.
#include "support/tv-messages.h"

#include <genrpc/json.h>

#include <gtest/gtest.h>
#include <schema/samples.h>
#include <string>
#include <tuple>
#include <vector>

namespace {

// The fields of a record as its declaration lists them.
template <class Record> struct Declared;
#define FIELD_NAME(type, name) #name,
#define DECLARED(Record, FIELDS) \
    template <> struct Declared<Record> { static inline const std::vector<std::string> fields{FIELDS(FIELD_NAME)}; };
#define DECLARED_TV(family, Record, FIELDS) DECLARED(tvservice::Record, FIELDS)
#define DECLARED_MM(family, Record, FIELDS) DECLARED(mmservice::Record, FIELDS)
// The types in the lists are written as in the services' namespaces. Only the names are used here.
TVSERVICE_CORE_RECORDS(DECLARED_TV)
TVSERVICE_STREAM_RECORDS(DECLARED_TV)
TVSERVICE_STATUS_RECORDS(DECLARED_TV)
MMSERVICE_RECORDS(DECLARED_MM)
#undef FIELD_NAME
#undef DECLARED
#undef DECLARED_TV
#undef DECLARED_MM

// Calls use.operator()<Record>() for each record of both services.
template <class Use> void forEachRecord(Use use) {
    support::forEach(support::CoreRecords{}, use);
    support::forEach(support::StreamRecords{}, use);
    support::forEach(support::StatusRecords{}, use);
}

// Calls use(name, member) for each field of a record.
template <class Record, class Use> void forEachField(Use use) {
    std::apply([&](const auto&... field) { (use(std::string(field.name), field.plain), ...); }, Record::Flat::fields());
}

// A record with one field set; all others are zero or empty.
template <class Record, class Value> Record withOnly(Value Record::*member) {
    Record record;
    record.*member = schema::Samples().next<Value>();
    return record;
}

// The fields of a record's text: everything after its name.
template <class Record> genrpc::Json fieldsOf(const Record& record) {
    const std::string text = genrpc::toText(record), name = std::string(Record::recordName) + " ";
    EXPECT_EQ(text.substr(0, name.size()), name);
    return genrpc::Json::parse(text.substr(name.size()), nullptr, false);
}

TEST(RecordText, NamesEveryFieldInOrder) {
    forEachRecord([]<class Record>() {
        std::vector<std::string> names;
        const auto fields = fieldsOf(schema::Samples().next<Record>());
        for (const auto& [name, value] : fields.items()) names.push_back(name);
        EXPECT_EQ(names, Declared<Record>::fields);
    });
}

TEST(RecordText, PrintsEachFieldUnderItsName) {
    forEachRecord([]<class Record>() {
        const auto empty = fieldsOf(Record{});
        forEachField<Record>([&](const std::string& name, auto member) {
            const Record record = withOnly(member);
            const auto fields = fieldsOf(record);
            EXPECT_EQ(fields.at(name), genrpc::toJson(record.*member)) << name;
            for (const auto& other : Declared<Record>::fields)
                EXPECT_EQ(fields.at(other) == empty.at(other), other != name) << other << " by " << name;
        });
    });
}

TEST(RecordComparison, DetectsADifferenceInEachField) {
    forEachRecord([]<class Record>() {
        EXPECT_EQ(Record{}, Record{});
        EXPECT_EQ(schema::Samples().next<Record>(), schema::Samples().next<Record>());
        std::size_t seen = 0;
        forEachField<Record>([&](const std::string& name, auto member) {
            EXPECT_NE(withOnly(member), Record{}) << name;
            EXPECT_EQ(withOnly(member), withOnly(member)) << name;
            ++seen;
        });
        EXPECT_EQ(seen, Declared<Record>::fields.size());
    });
}

} // namespace
