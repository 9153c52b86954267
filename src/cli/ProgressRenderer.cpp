#include "cli/ProgressRenderer.h"

#include <algorithm>

#include "base/Regex.h"
#include "cli/Cli.h"
#include "platform/CredentialStore.h"

namespace vn::cli {

std::string ProgressRenderer::bar(int percent, int width) {
    percent = std::clamp(percent, 0, 100);
    int filled = percent * width / 100;
    return "[" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(width - filled), ' ') + "] " +
           std::to_string(percent) + "%";
}

void ProgressRenderer::feed(std::string_view text) {
    pending_.append(text);
    std::size_t from = 0;
    for (;;) {
        std::size_t end = pending_.find_first_of("\r\n", from);
        if (end == std::string::npos) {
            break;
        }
        // "\r\n" ends a line, as a lone "\n" does.
        bool transient =
            pending_[end] == '\r' && !(end + 1 < pending_.size() && pending_[end + 1] == '\n');
        if (pending_[end] == '\r' && end + 1 == pending_.size()) {
            // Whether a "\n" follows is not known yet; a redraw can wait for the next piece.
            break;
        }
        segment(std::string_view(pending_).substr(from, end - from), transient);
        from = end + 1;
        if (pending_[end] == '\r' && !transient) {
            ++from;
        }
    }
    pending_.erase(0, from);
}

void ProgressRenderer::finish() {
    if (!pending_.empty()) {
        std::string rest = std::move(pending_);
        pending_.clear();
        while (!rest.empty() && rest.back() == '\r') {
            rest.pop_back();
        }
        if (!rest.empty()) {
            segment(rest, false);
        }
    }
    if (barShown_) {
        write_("\n");
        barShown_ = false;
    }
}

void ProgressRenderer::segment(std::string_view raw, bool transient) {
    // git pads the remote's lines with blanks to cover a longer line before them.
    while (!raw.empty() && raw.back() == ' ') {
        raw.remove_suffix(1);
    }
    std::string text = displayLines(CredentialStore::redactURLPasswords(raw));
    if (!terminal_) {
        if (!transient && !text.empty()) {
            write_(text + "\n");
        }
        return;
    }
    static const Regex counted("^(.*?):\\s+(\\d{1,3})% \\((\\d+)/(\\d+)\\)(.*)$");
    std::string line = text;
    if (auto match = counted.find(text)) {
        int percent = std::stoi(match->str(2));
        line = match->str(1) + " " + bar(percent) + " (" + match->str(3) + "/" + match->str(4) +
               ")" + match->str(5);
    }
    // "\x1b[K" clears what a longer redraw left on the line.
    write_("\r" + line + "\x1b[K");
    if (transient) {
        barShown_ = true;
    } else {
        write_("\n");
        barShown_ = false;
    }
}

}  // namespace vn::cli
