#include "body-reader.h"

#include "words.h"

namespace recording {
namespace {

using schema::Kind;

constexpr int deepest = 2 * mostNested; // records inside records and sequences

std::string numberText(std::size_t number) { return std::to_string(number); }

template <class Integer> Json integer(std::string_view body, std::size_t at, std::endian order) {
    return load<Integer>(body, at, order);
}

void addName(Json& object, const LayoutField& field, const Json& value) {
    const auto name = field.numbers->names.find(value.get<std::int64_t>());
    object[field.name + "Name"] = name == field.numbers->names.end() ? "unknown" : name->second;
}

} // namespace

Json BodyReader::read(const Layout& arguments) {
    if (body_.size() < arguments.size)
        throw BodyError("the message has " + numberText(body_.size()) + " bytes, its arguments alone take " +
                        numberText(arguments.size));
    next_ = arguments.size;
    Json content = record(arguments, 0);
    if (next_ != body_.size())
        throw BodyError(numberText(body_.size() - next_) + " bytes follow the message's last block");
    return content;
}

Json BodyReader::record(const Layout& layout, std::size_t at) {
    if (++depth_ > deepest) throw BodyError("nested more than " + std::to_string(deepest) + " levels deep");
    Json content = Json::object();
    for (const LayoutField& field : layout.fields) {
        try {
            Json& added = content[field.name] = value(field, at);
            if (numbers_ == Numbers::named && field.numbers && field.kind == Kind::Scalar)
                addName(content, field, Json(added));
        } catch (const BodyError& error) {
            throw BodyError(error, field.name);
        }
        at += field.size;
    }
    --depth_;
    return content;
}

Json BodyReader::value(const LayoutField& field, std::size_t at) {
    switch (field.kind) {
        case Kind::Scalar:
            return scalar(field, at);
        case Kind::Flag:
            return word(at) != 0;
        case Kind::String:
            return string(at);
        case Kind::Record:
            return record(*field.record, at);
        default:
            return list(field, at);
    }
}

Json BodyReader::scalar(const LayoutField& field, std::size_t at) const {
    switch (field.size) {
        case 1:
            return field.isSigned ? integer<std::int8_t>(body_, at, order_) : integer<std::uint8_t>(body_, at, order_);
        case 2:
            return field.isSigned ? integer<std::int16_t>(body_, at, order_)
                                  : integer<std::uint16_t>(body_, at, order_);
        default:
            return field.isSigned ? integer<std::int32_t>(body_, at, order_)
                                  : integer<std::uint32_t>(body_, at, order_);
    }
}

Json BodyReader::string(std::size_t at) {
    const std::size_t length = word(at), offset = word(at + 4);
    if (offset == 0) return "";
    if (length >= body_.size()) // also where length + 1 would be 0
        throw BodyError("its length is " + numberText(length) + ", the message has " + numberText(body_.size()) +
                        " bytes");
    const std::size_t begin = block(offset, length + 1);
    if (body_[begin + length] != 0)
        throw BodyError("the string of " + numberText(length) + " bytes at byte " + numberText(offset) +
                        " is not terminated");
    return std::string(body_.substr(begin, length));
}

Json BodyReader::list(const LayoutField& field, std::size_t at) {
    const std::size_t count = word(at), offset = word(at + 4);
    if ((count == 0) != (offset == 0))
        throw BodyError("count " + numberText(count) + " with " +
                        (offset == 0 ? "a null pointer" : "a pointer to byte " + numberText(offset)));
    Json elements = Json::array();
    if (count == 0) return elements;
    const std::size_t size = field.kind == Kind::Uint32List   ? 4
                             : field.kind == Kind::StringList ? 8
                                                              : field.record->size;
    if (count > body_.size() / size)
        throw BodyError("its " + numberText(count) + " elements exceed the message of " + numberText(body_.size()) +
                        " bytes");
    const std::size_t begin = block(offset, count * size);
    for (std::size_t i = 0; i < count; ++i) {
        try {
            elements.push_back(element(field, begin + i * size));
        } catch (const BodyError& error) {
            throw BodyError(error, "[" + numberText(i) + "]");
        }
    }
    return elements;
}

Json BodyReader::element(const LayoutField& list, std::size_t at) {
    if (list.kind == Kind::Uint32List) return word(at);
    return list.kind == Kind::StringList ? string(at) : record(*list.record, at);
}

std::size_t BodyReader::block(std::size_t offset, std::size_t size) {
    if (offset != next_)
        throw BodyError("its block is at byte " + numberText(offset) + ", but the next block begins at byte " +
                        numberText(next_));
    if (size > body_.size() - next_)
        throw BodyError("its block of " + numberText(size) + " bytes at byte " + numberText(offset) +
                        " exceeds the message of " + numberText(body_.size()) + " bytes");
    next_ += size;
    return offset;
}

std::uint32_t BodyReader::word(std::size_t at) const { return load<std::uint32_t>(body_, at, order_); }

} // namespace recording
