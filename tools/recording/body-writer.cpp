#include "body-writer.h"

#include "words.h"

namespace recording {
namespace {

using schema::Kind;

class BodyWriter {
public:
    explicit BodyWriter(std::endian order) : order_(order) {}

    std::string write(const Layout& arguments, const Json& content) {
        body_.resize(arguments.size);
        record(arguments, content, 0);
        return std::move(body_);
    }

private:
    void record(const Layout& layout, const Json& content, std::size_t at) {
        for (const LayoutField& field : layout.fields) {
            value(field, content.at(field.name), at);
            at += field.size;
        }
    }

    void value(const LayoutField& field, const Json& content, std::size_t at) {
        switch (field.kind) {
            case Kind::Scalar:
                return scalar(field.size, content.get<std::int64_t>(), at);
            case Kind::Flag:
                return scalar(4, content.get<bool>() ? 1 : 0, at);
            case Kind::String:
                return string(content.get<std::string>(), at);
            case Kind::Record:
                return record(*field.record, content, at);
            default:
                return list(field, content, at);
        }
    }

    void scalar(std::size_t size, std::int64_t number, std::size_t at) {
        if (size == 1) store(body_, at, static_cast<std::uint8_t>(number), order_);
        if (size == 2) store(body_, at, static_cast<std::uint16_t>(number), order_);
        if (size == 4) store(body_, at, static_cast<std::uint32_t>(number), order_);
    }

    void pointer(std::size_t count, std::size_t at) {
        scalar(4, static_cast<std::int64_t>(count), at);
        scalar(4, static_cast<std::int64_t>(body_.size()), at + 4);
    }

    void string(const std::string& text, std::size_t at) {
        pointer(text.size(), at);
        body_ += text;
        body_ += '\0';
    }

    void list(const LayoutField& field, const Json& content, std::size_t at) {
        if (content.empty()) return;
        const LayoutField element = elementOf(field);
        pointer(content.size(), at);
        std::size_t next = body_.size();
        body_.resize(next + content.size() * element.size);
        for (const Json& each : content) {
            value(element, each, next);
            next += element.size;
        }
    }

    static LayoutField elementOf(const LayoutField& list) {
        if (list.kind == Kind::Uint32List) return {.name = list.name, .kind = Kind::Scalar, .size = 4};
        if (list.kind == Kind::StringList) return {.name = list.name, .kind = Kind::String, .size = 8};
        return {.name = list.name, .kind = Kind::Record, .size = list.record->size, .record = list.record};
    }

    std::endian order_;
    std::string body_;
};

} // namespace

std::string writeBody(const Layout& arguments, const Json& content, std::endian order) {
    return BodyWriter(order).write(arguments, content);
}

} // namespace recording
