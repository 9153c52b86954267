#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vn {

class Record;
class Value;
class JsonWriter;

// Base of model objects that travel inside records (log description entries, graph entries, ...).
class Object {
  public:
    virtual ~Object() = default;
    // What the object looks like in JSON; null unless the class says otherwise.
    virtual Value jsonValue() const;
    // Writes the object's JSON; by default `jsonValue()`. Large models write themselves directly.
    virtual void writeJson(JsonWriter& writer) const;
};

// One value of a keyed record: null, bool, signed or unsigned 64-bit integer, double, UTF-8 text,
// a point in time, an array, a nested record or a shared model object. Arrays and records are
// shared and immutable once stored, so copying a value is cheap.
class Value {
  public:
    using Date = std::chrono::system_clock::time_point;
    using Array = std::vector<Value>;
    enum class Type { Null, Bool, Int, UInt, Double, String, Date, Array, Record, Object };

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool b) : data_(b) {}
    Value(int i) : data_(static_cast<int64_t>(i)) {}
    Value(long i) : data_(static_cast<int64_t>(i)) {}
    Value(long long i) : data_(static_cast<int64_t>(i)) {}
    Value(unsigned i) : data_(static_cast<uint64_t>(i)) {}
    Value(unsigned long i) : data_(static_cast<uint64_t>(i)) {}
    Value(unsigned long long i) : data_(static_cast<uint64_t>(i)) {}
    Value(double d) : data_(d) {}
    Value(const char* s) : data_(std::string(s)) {}
    Value(std::string s) : data_(std::move(s)) {}
    Value(std::string_view s) : data_(std::string(s)) {}
    Value(Date d) : data_(Moment{d, {}}) {}
    // A point in time with the UTC offset of the clock that recorded it, in seconds east of UTC
    // (a commit's "+05:30" is 19800): the instant and the wall-clock time both survive.
    Value(Date d, int32_t offsetSeconds) : data_(Moment{d, offsetSeconds}) {}
    Value(Array a);
    Value(Record r);
    Value(std::shared_ptr<const Object> o) : data_(std::move(o)) {}
    template <typename T>
    requires std::is_base_of_v<Object, T> Value(std::shared_ptr<T> o)
        : data_(std::shared_ptr<const Object>(std::move(o))) {}

    Type type() const { return static_cast<Type>(data_.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isString() const { return type() == Type::String; }
    bool isNumber() const {
        return type() == Type::Int || type() == Type::UInt || type() == Type::Double;
    }

    // Readers with a default for a value of another type. Numbers convert between each other.
    bool toBool(bool fallback = false) const;
    int64_t toInt(int64_t fallback = 0) const;
    uint64_t toUInt(uint64_t fallback = 0) const;
    double toDouble(double fallback = 0) const;
    // Text as stored; numbers and bools are written out; anything else gives `fallback`.
    std::string toString(std::string_view fallback = {}) const;
    const std::string* string() const { return std::get_if<std::string>(&data_); }
    const Date* date() const {
        const Moment* moment = std::get_if<Moment>(&data_);
        return moment ? &moment->time : nullptr;
    }
    // The recorded offset of a point in time; nothing for other values and for points in time
    // stored without one.
    std::optional<int32_t> dateOffset() const {
        const Moment* moment = std::get_if<Moment>(&data_);
        return moment ? moment->offset : std::nullopt;
    }
    const Array* array() const;
    const Record* record() const;
    const std::shared_ptr<const Object>* object() const {
        return std::get_if<std::shared_ptr<const Object>>(&data_);
    }
    template <typename T>
    std::shared_ptr<const T> objectAs() const {
        if (auto o = object()) {
            return std::dynamic_pointer_cast<const T>(*o);
        }
        return nullptr;
    }

    bool operator==(const Value& other) const;

  private:
    struct Moment {
        Date time;
        std::optional<int32_t> offset;
        bool operator==(const Moment&) const = default;
    };
    std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Moment,
                 std::shared_ptr<const Array>, std::shared_ptr<const Record>,
                 std::shared_ptr<const Object>>
        data_;
};

}  // namespace vn
