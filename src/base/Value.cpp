#include "base/Value.h"

#include <charconv>
#include <cmath>

#include "base/Json.h"
#include "base/Record.h"

namespace vn {

Value Object::jsonValue() const {
    return {};
}

void Object::writeJson(JsonWriter& writer) const {
    writer.value(jsonValue());
}

Value::Value(Array a) : data_(std::make_shared<const Array>(std::move(a))) {}
Value::Value(Record r) : data_(std::make_shared<const Record>(std::move(r))) {}

const Value::Array* Value::array() const {
    auto p = std::get_if<std::shared_ptr<const Array>>(&data_);
    return p ? p->get() : nullptr;
}

const Record* Value::record() const {
    auto p = std::get_if<std::shared_ptr<const Record>>(&data_);
    return p ? p->get() : nullptr;
}

bool Value::toBool(bool fallback) const {
    switch (type()) {
        case Type::Bool:
            return std::get<bool>(data_);
        case Type::Int:
        case Type::UInt:
        case Type::Double:
            return toDouble() != 0;
        case Type::String: {
            // The same reading as a text's boolean value: "YES", "true" or a non-zero number.
            const std::string& s = std::get<std::string>(data_);
            std::size_t i = s.find_first_not_of(" \t");
            if (i == std::string::npos) {
                return false;
            }
            char c = s[i];
            if (c == 'Y' || c == 'y' || c == 'T' || c == 't') {
                return true;
            }
            if (c == '-' || c == '+') {
                ++i;
            }
            while (i < s.size() && s[i] == '0') {
                ++i;
            }
            return i < s.size() && s[i] >= '1' && s[i] <= '9';
        }
        default:
            return fallback;
    }
}

int64_t Value::toInt(int64_t fallback) const {
    switch (type()) {
        case Type::Bool:
            return std::get<bool>(data_) ? 1 : 0;
        case Type::Int:
            return std::get<int64_t>(data_);
        case Type::UInt:
            return static_cast<int64_t>(std::get<uint64_t>(data_));
        case Type::Double:
            return static_cast<int64_t>(std::get<double>(data_));
        case Type::String: {
            const std::string& s = std::get<std::string>(data_);
            int64_t v = 0;
            std::size_t i = s.find_first_not_of(" \t");
            if (i == std::string::npos) {
                return fallback;
            }
            if (s[i] == '+') {
                ++i;
            }
            auto [ptr, ec] = std::from_chars(s.data() + i, s.data() + s.size(), v);
            return ec == std::errc() ? v : fallback;
        }
        default:
            return fallback;
    }
}

uint64_t Value::toUInt(uint64_t fallback) const {
    if (type() == Type::UInt) {
        return std::get<uint64_t>(data_);
    }
    if (type() == Type::String) {
        const std::string& s = std::get<std::string>(data_);
        uint64_t v = 0;
        auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
        return ec == std::errc() ? v : fallback;
    }
    return isNumber() || type() == Type::Bool ? static_cast<uint64_t>(toInt()) : fallback;
}

double Value::toDouble(double fallback) const {
    switch (type()) {
        case Type::Bool:
            return std::get<bool>(data_) ? 1 : 0;
        case Type::Int:
            return static_cast<double>(std::get<int64_t>(data_));
        case Type::UInt:
            return static_cast<double>(std::get<uint64_t>(data_));
        case Type::Double:
            return std::get<double>(data_);
        case Type::String: {
            const std::string& s = std::get<std::string>(data_);
            char* end = nullptr;
            double d = std::strtod(s.c_str(), &end);
            return end && end != s.c_str() ? d : fallback;
        }
        default:
            return fallback;
    }
}

std::string Value::toString(std::string_view fallback) const {
    switch (type()) {
        case Type::String:
            return std::get<std::string>(data_);
        case Type::Bool:
            return std::get<bool>(data_) ? "true" : "false";
        case Type::Int:
            return std::to_string(std::get<int64_t>(data_));
        case Type::UInt:
            return std::to_string(std::get<uint64_t>(data_));
        case Type::Double:
            return toJson(*this);
        case Type::Date: {
            Value v = *this;
            std::string json = toJson(v);
            return json.size() >= 2 ? json.substr(1, json.size() - 2) : json;
        }
        default:
            return std::string(fallback);
    }
}

bool Value::operator==(const Value& other) const {
    if (type() != other.type()) {
        if (isNumber() && other.isNumber()) {
            return toDouble() == other.toDouble();
        }
        return false;
    }
    switch (type()) {
        case Type::Array:
            return *array() == *other.array();
        case Type::Record:
            return *record() == *other.record();
        default:
            return data_ == other.data_;
    }
}

Record::Record(std::initializer_list<Entry> entries) {
    entries_.reserve(entries.size());
    for (const Entry& e : entries) {
        set(e.first, e.second);
    }
}

Record& Record::set(std::string_view key, Value value) {
    for (Entry& e : entries_) {
        if (e.first == key) {
            e.second = std::move(value);
            return *this;
        }
    }
    entries_.emplace_back(std::string(key), std::move(value));
    return *this;
}

bool Record::remove(std::string_view key) {
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        if (it->first == key) {
            entries_.erase(it);
            return true;
        }
    }
    return false;
}

const Value* Record::find(std::string_view key) const {
    for (const Entry& e : entries_) {
        if (e.first == key) {
            return &e.second;
        }
    }
    return nullptr;
}

const Value& Record::operator[](std::string_view key) const {
    static const Value null;
    const Value* v = find(key);
    return v ? *v : null;
}

std::vector<std::string> Record::keys() const {
    std::vector<std::string> result;
    result.reserve(entries_.size());
    for (const Entry& e : entries_) {
        result.push_back(e.first);
    }
    return result;
}

}  // namespace vn
