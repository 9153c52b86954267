#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace vn {

namespace detail {
inline std::string toText(std::string_view s) {
    return std::string(s);
}
inline std::string toText(const char* s) {
    return s ? s : "(null)";
}
inline std::string toText(const std::string& s) {
    return s;
}
inline std::string toText(char c) {
    return std::string(1, c);
}
inline std::string toText(bool b) {
    return b ? "YES" : "NO";
}
template <typename T>
requires std::is_arithmetic_v<T> std::string toText(T v) {
    return std::to_string(v);
}
std::string formatArgs(std::string_view format, const std::vector<std::string>& args);
}  // namespace detail

// Fills a message format in the style the engine's texts are written in: each conversion ("%@",
// "%d", "%ld", "%lu", "%u", "%s", "%i", "%lld", "%llu") takes the next argument, written as text;
// "%%" is a percent sign. Missing arguments leave the conversion empty.
template <typename... Args>
std::string format(std::string_view fmt, const Args&... args) {
    return detail::formatArgs(fmt, std::vector<std::string>{detail::toText(args)...});
}

}  // namespace vn
