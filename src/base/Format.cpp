#include "base/Format.h"

namespace vn::detail {

std::string formatArgs(std::string_view format, const std::vector<std::string>& args) {
    std::string out;
    out.reserve(format.size() + 32);
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c != '%' || i + 1 >= format.size()) {
            out.push_back(c);
            continue;
        }
        std::size_t j = i + 1;
        if (format[j] == '%') {
            out.push_back('%');
            i = j;
            continue;
        }
        while (j < format.size() && (format[j] == 'l' || format[j] == 'q')) {
            ++j;
        }
        if (j < format.size() &&
            std::string_view("@dusiDUx").find(format[j]) != std::string_view::npos) {
            if (next < args.size()) {
                out.append(args[next]);
            }
            ++next;
            i = j;
            continue;
        }
        out.push_back(c);
    }
    return out;
}

}  // namespace vn::detail
