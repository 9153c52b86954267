#include "model/VNLogGraphLayout.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

using Line = VNLogGraphEntryLine;

// Contexts are mostly hashes that already differ in their first bytes: those are compared
// inline, which is most of the work of walking a wide row.
bool sameText(const std::string& a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    if (a.size() >= 8) {
        uint64_t x, y;
        std::memcpy(&x, a.data(), 8);
        std::memcpy(&y, b.data(), 8);
        if (x != y) {
            return false;
        }
    }
    return std::memcmp(a.data(), b.data(), a.size()) == 0;
}

const std::string& textOf(const vn::Record& row, std::string_view key) {
    static const std::string empty;
    const std::string* text = row[key].string();
    return text ? *text : empty;
}

// The identifier read as an integer the way a text's integer value is read (leading blanks, a
// sign, digits); only a text that can read as a negative number needs the conversion.
bool isWorkingCopyRevision(std::string_view rev) {
    std::size_t first = 0;
    while (first < rev.size() && std::isspace(static_cast<unsigned char>(rev[first]))) {
        ++first;
    }
    if (first == rev.size() || rev[first] != '-') {
        return false;
    }
    return std::strtoll(std::string(rev).c_str(), nullptr, 10) == -1;
}

}  // namespace

VNLogGraphLayout::VNLogGraphLayout(std::shared_ptr<const VNLogGraphEntry> base, bool firstParent)
    : previous_(std::move(base)),
      firstParent_(firstParent),
      randomState_(previous_ ? previous_->randomState : VNLogGraphEntry::InitialRandomState) {}

std::shared_ptr<const VNLogGraphEntry> VNLogGraphLayout::addRow(vn::Record& row) {
    const std::string& rev = textOf(row, "rev");
    parent1_ = std::make_shared<const std::string>(textOf(row, "parentid1"));
    mergeParents_.clear();
    if (!firstParent_) {
        const std::string& parent2 = textOf(row, "parentid2");
        if (!parent2.empty()) {
            mergeParents_.push_back(std::make_shared<const std::string>(parent2));
        }
        if (const vn::Value::Array* others = row["otherparentids"].array()) {
            for (const vn::Value& other : *others) {
                mergeParents_.push_back(std::make_shared<const std::string>(other.toString()));
            }
        }
    }
    auto entry = layout(rev, isWorkingCopyRevision(rev));
    if (auto description = row["descriptionentry"].objectAs<VNLogGraphColoured>()) {
        description->setBaseColour(entry->commitColour);
    }
    row.set("graph", entry);
    return entry;
}

void VNLogGraphLayout::addRows(std::vector<vn::Record>& rows) {
    for (vn::Record& row : rows) {
        addRow(row);
    }
}

std::shared_ptr<const VNLogGraphEntry> VNLogGraphLayout::addRevision(
    std::string_view rev, const std::vector<std::string_view>& parents) {
    parent1_ =
        std::make_shared<const std::string>(parents.empty() ? std::string_view() : parents.front());
    mergeParents_.clear();
    if (!firstParent_) {
        for (std::size_t i = 1; i < parents.size(); ++i) {
            mergeParents_.push_back(std::make_shared<const std::string>(parents[i]));
        }
    }
    return layout(rev, isWorkingCopyRevision(rev));
}

VNLogGraphColour VNLogGraphLayout::newColour(const VNLogGraphEntry& entry) {
    // The same choice as trying each candidate against every colour in sight, made with one
    // mask per colour instead.
    uint32_t taken = entry.commitColour.similarCandidates();
    for (const Segment& segment : segments_) {
        taken |= segment.run ? (*segment.run)->similarColours : segment.colour->similarCandidates();
    }
    for (const Segment& segment : pending_) {
        taken |= segment.colour->similarCandidates();
    }
    if (const VNLogGraphEntry* previous = previous_.get()) {
        taken |=
            previous->commitColour.similarCandidates() | previous->lineColumns.similarColours();
    }
    const auto& candidates = VNLogGraphColour::generatorCandidates();
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (!(taken & (1u << i))) {
            return VNLogGraphColour::hsb(candidates[i].hue, 0.6, candidates[i].brightness);
        }
    }
    double brightness = 0.7;
    for (int series = 0; series < 3; ++series) {
        brightness += 0.1;
    }
    return VNLogGraphColour::hsb(vn::graph::nextRandomHue(randomState_), 0.6, brightness);
}

std::shared_ptr<const VNLogGraphEntry> VNLogGraphLayout::layout(std::string_view rev,
                                                                bool workingCopy) {
    const VNLogGraphColour grey = VNLogGraphColour::grey();
    const VNLogGraphEntry* prev = previous_.get();
    const uint64_t revKey = Line::contextKey(rev);
    auto entry = std::make_shared<VNLogGraphEntry>();
    segments_.clear();
    pending_.clear();
    uint32_t lane = 0;
    bool arrived = false;

    auto mergeColour = [&] { return workingCopy ? grey : newColour(*entry); };
    auto findInPrevious = [&](const std::string& context) -> const Line* {
        if (prev) {
            for (const Line& line : prev->lineColumns) {
                if (sameText(line.lineContext(), context)) {
                    return &line;
                }
            }
        }
        return nullptr;
    };

    // Colours chosen for merge lines, kept where the segments can point at them.
    colours_.clear();
    colours_.reserve(mergeParents_.size());
    auto kept = [&](const VNLogGraphColour& colour) {
        colours_.push_back(colour);
        return &colours_.back();
    };

    if (prev) {
        constexpr std::size_t RunLength = VNLogGraphLines::RunLength;
        const auto& runs = prev->lineColumns.runs();
        std::size_t lines = 0;
        for (std::size_t r = 0; r < runs.size(); ++r) {
            const VNLogGraphLines::Run& run = *runs[r];
            // Most runs of a wide row pass straight down: taken whole when they stay in their
            // lanes and the revision of this row is not among them.
            if (run.plain && lines == r * RunLength && run.lines.front().startCol == lane &&
                std::none_of(run.lines.begin(), run.lines.end(),
                             [&](const Line& line) { return line.lineContextKey() == revKey; })) {
                segments_.push_back({lane, lane, nullptr, nullptr, false, false, false, &runs[r]});
                lane += RunLength;
                lines += RunLength;
                continue;
            }
            for (const Line& old : run.lines) {
                if (old.originates || old.sharedStart) {
                    continue;  // ended in the previous row
                }
                ++lines;
                Segment& segment = segments_.emplace_back();
                segment.endCol = old.startCol;
                segment.colour = &old.lineColour;
                segment.context = &old.sharedLineContext();
                segment.terminates = false;
                segment.originates = old.lineContextKey() == 0;  // no context
                segment.sharedStart = false;
                if (old.lineContextKey() != revKey || !sameText(old.lineContext(), rev)) {
                    segment.startCol = lane++;
                } else if (arrived) {
                    // A second line converging on this revision ends at its dot.
                    segment.originates = true;
                    segment.startCol = entry->commitColumn;
                } else {
                    entry->commitColumn = lane;
                    // The carrying line is in the row, in its old colour, while a new one is
                    // chosen.
                    segment.startCol = old.startCol;
                    std::size_t carried = segments_.size() - 1;
                    entry->commitColour =
                        old.lineColour.isGrey() ? newColour(*entry) : old.lineColour;
                    Segment& line = segments_[carried];
                    line.colour = &entry->commitColour;
                    line.startCol = entry->commitColumn;
                    line.context = &parent1_;
                    if (parent1_->empty()) {
                        line.originates = true;  // a root revision
                    }
                    for (const auto& parent : mergeParents_) {
                        const Line* found = findInPrevious(*parent);
                        const VNLogGraphColour* colour =
                            found ? (workingCopy ? &grey : &found->lineColour)
                                  : kept(mergeColour());
                        pending_.push_back({entry->commitColumn, entry->commitColumn, colour,
                                            &parent, true, parent->empty(), found != nullptr});
                    }
                    ++lane;
                    arrived = true;
                }
            }
        }
    }

    if (!arrived) {
        entry->commitColumn = lane;
        entry->commitColour = workingCopy ? grey : newColour(*entry);
        segments_.push_back(
            {lane, lane, &entry->commitColour, &parent1_, true, parent1_->empty(), false});
        for (const auto& parent : mergeParents_) {
            if (const Line* found = findInPrevious(*parent)) {
                // Joins the parent's line at the lane it had at the previous row's lower edge.
                segments_.push_back({entry->commitColumn, found->startCol,
                                     workingCopy ? &grey : &found->lineColour, &parent, true,
                                     parent->empty(), true});
            } else {
                pending_.push_back({entry->commitColumn, entry->commitColumn, kept(mergeColour()),
                                    &parent, true, parent->empty(), false});
            }
        }
        ++lane;
    }

    for (Segment& line : pending_) {
        if (line.sharedStart) {
            const std::string& context = **line.context;
            line.startCol = 0;
            for (const Segment& segment : segments_) {
                if (segment.run) {
                    const auto& lines = (*segment.run)->lines;
                    auto target = std::find_if(lines.begin(), lines.end(), [&](const Line& l) {
                        return sameText(l.lineContext(), context);
                    });
                    if (target != lines.end()) {
                        line.startCol = target->startCol;
                        break;
                    }
                } else if (sameText(**segment.context, context)) {
                    line.startCol = segment.startCol;
                    break;
                }
            }
        } else {
            line.startCol = lane++;
        }
        segments_.push_back(line);
    }

    build(*entry);
    entry->randomState = randomState_;
    previous_ = entry;
    ++rows_;
    return entry;
}

void VNLogGraphLayout::build(VNLogGraphEntry& entry) {
    using Run = VNLogGraphLines::Run;
    constexpr std::size_t RunLength = VNLogGraphLines::RunLength;
    const std::vector<VNLogGraphLines::RunPointer>* above =
        previous_ ? &previous_->lineColumns.runs() : nullptr;
    const std::size_t count = segments_.size();
    std::size_t total = 0;
    for (const Segment& segment : segments_) {
        total += segment.run ? RunLength : 1;
    }
    entry.lineColumns.reserve(total);
    // Runs taken whole stand at run boundaries, so the others fall into the same runs of
    // RunLength as the lines would.
    std::size_t line = 0;
    for (std::size_t next = 0; next < count;) {
        const std::size_t index = line / RunLength;
        if (const VNLogGraphLines::RunPointer* whole = segments_[next].run) {
            entry.lineColumns.appendRun(*whole);
            ++next;
            line += RunLength;
            continue;
        }
        std::size_t length = 0;
        while (length < RunLength && next + length < count && !segments_[next + length].run) {
            ++length;
        }
        const Segment* segments = segments_.data() + next;
        next += length;
        line += length;
        if (above && index < above->size()) {
            const Run& candidate = *(*above)[index];
            if (candidate.lines.size() == length &&
                std::equal(candidate.lines.begin(), candidate.lines.end(), segments,
                           [](const Line& line, const Segment& segment) {
                               return line.endCol == segment.endCol &&
                                      line.startCol == segment.startCol &&
                                      line.sharedLineContext() == *segment.context &&
                                      line.terminates == segment.terminates &&
                                      line.originates == segment.originates &&
                                      line.sharedStart == segment.sharedStart && !line.isBlank &&
                                      line.lineColour == *segment.colour;
                           })) {
                entry.lineColumns.appendRun((*above)[index]);
                continue;
            }
        }
        auto run = std::make_shared<Run>();
        run->lines.reserve(length);
        run->plain = length == RunLength;
        for (std::size_t i = 0; i < length; ++i) {
            const Segment& segment = segments[i];
            Line& line = run->lines.emplace_back(segment.endCol, *segment.colour, *segment.context);
            line.startCol = segment.startCol;
            line.terminates = segment.terminates;
            line.originates = segment.originates;
            line.sharedStart = segment.sharedStart;
            run->similarColours |= segment.colour->similarCandidates();
            run->plain = run->plain && segment.endCol == segment.startCol &&
                         segment.startCol == segments[0].startCol + i && !segment.terminates &&
                         !segment.originates && !segment.sharedStart && line.lineContextKey() != 0;
        }
        entry.lineColumns.appendRun(std::move(run));
    }
}

namespace vn::graph {

void addGraphInfoToLogRevisions(std::vector<Record>& rows,
                                std::shared_ptr<const VNLogGraphEntry> base, bool firstParent) {
    VNLogGraphLayout(std::move(base), firstParent).addRows(rows);
}

}  // namespace vn::graph
