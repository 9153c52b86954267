// The JSON writer with any bytes as keys and strings: its text must be valid UTF-8, must parse,
// and must give back each string with its invalid bytes replaced as repairUTF8 replaces them.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/Json.h"
#include "base/Record.h"
#include "base/TextEncoding.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::size_t cut = input.find('\0');
    std::string_view key = input.substr(0, cut);
    std::string_view text =
        cut == std::string_view::npos ? std::string_view() : input.substr(cut + 1);
    for (bool pretty : {false, true}) {
        vn::JsonWriter writer(pretty);
        writer.beginArray();
        writer.beginObject();
        writer.key(key);
        writer.string(text);
        writer.endObject();
        writer.number(static_cast<int64_t>(size) - 1000);
        writer.number(static_cast<double>(size) / 7);
        writer.endArray();
        if (!vn::isValidUTF8(writer.text())) {
            std::abort();
        }
        auto parsed = vn::parseJson(writer.text());
        if (!parsed || !parsed->array() || parsed->array()->size() != 3 ||
            !(*parsed->array())[0].record() || (*parsed->array())[0].record()->size() != 1) {
            std::abort();
        }
        const auto& [parsedKey, parsedValue] = *(*parsed->array())[0].record()->begin();
        if (parsedKey != vn::repairUTF8(key) || !parsedValue.string() ||
            *parsedValue.string() != vn::repairUTF8(text)) {
            std::abort();
        }
    }
    return 0;
}
