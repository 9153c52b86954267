#include "model/VNLogGraphLines.h"

namespace {

// A run whose colours may have been changed in place; its mask is worked out when asked.
constexpr uint32_t UnknownColours = 0x80000000u;

uint32_t coloursOf(const VNLogGraphLines::Run& run) {
    if (!(run.similarColours & UnknownColours)) {
        return run.similarColours;
    }
    uint32_t mask = 0;
    for (const auto& line : run.lines) {
        mask |= line.lineColour.similarCandidates();
    }
    return mask;
}

}  // namespace

VNLogGraphLines::Run& VNLogGraphLines::writableRun(std::size_t index) {
    RunPointer& run = runs_[index];
    if (run.use_count() != 1) {
        run = std::make_shared<Run>(*run);
    }
    // Only this list holds the run now, so it may change in place.
    return const_cast<Run&>(*run);
}

VNLogGraphEntryLine& VNLogGraphLines::operator[](std::size_t i) {
    Run& run = writableRun(i / RunLength);
    run.similarColours = UnknownColours;
    run.plain = false;
    return run.lines[i % RunLength];
}

void VNLogGraphLines::push_back(VNLogGraphEntryLine line) {
    if (size_ % RunLength == 0) {
        auto run = std::make_shared<Run>();
        run->lines.reserve(RunLength);
        runs_.push_back(std::move(run));
    }
    Run& run = writableRun(runs_.size() - 1);
    run.plain = false;
    if (!(run.similarColours & UnknownColours)) {
        run.similarColours |= line.lineColour.similarCandidates();
    }
    run.lines.push_back(std::move(line));
    ++size_;
}

void VNLogGraphLines::appendRun(RunPointer run) {
    size_ += run->lines.size();
    runs_.push_back(std::move(run));
}

uint32_t VNLogGraphLines::similarColours() const {
    uint32_t mask = 0;
    for (const RunPointer& run : runs_) {
        mask |= coloursOf(*run);
    }
    return mask;
}

namespace {

bool sameLine(const VNLogGraphEntryLine& a, const VNLogGraphEntryLine& b) {
    return a.endCol == b.endCol && a.startCol == b.startCol && a.lineColour == b.lineColour &&
           a.lineContext() == b.lineContext() && a.terminates == b.terminates &&
           a.originates == b.originates && a.sharedStart == b.sharedStart && a.isBlank == b.isBlank;
}

}  // namespace

bool operator==(const VNLogGraphLines& a, const VNLogGraphLines& b) {
    if (a.size() != b.size()) {
        return false;
    }
    auto other = b.begin();
    for (const auto& line : a) {
        if (!sameLine(line, *other)) {
            return false;
        }
        ++other;
    }
    return true;
}
