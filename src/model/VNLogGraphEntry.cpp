#include "model/VNLogGraphEntry.h"

#include <cmath>
#include <cstdlib>
#include <random>

vn::Value VNLogGraphEntry::jsonValue() const {
    vn::Value::Array lines;
    lines.reserve(lineColumns.size());
    for (const auto& line : lineColumns) {
        lines.push_back(line.jsonValue());
    }
    return vn::Record{
        {"commitColumn", commitColumn},
        {"commitColour", commitColour.jsonValue()},
        {"lineColumns", std::move(lines)},
    };
}

namespace vn::graph {

namespace {

using Line = VNLogGraphEntryLine;
using SharedText = std::shared_ptr<const std::string>;

const std::string& textOf(const Record& row, std::string_view key) {
    static const std::string empty;
    const std::string* text = row[key].string();
    return text ? *text : empty;
}

// The identifier read as an integer the way a text's integer value is read: leading digits only.
bool isWorkingCopyRevision(const std::string& rev) {
    return std::strtoll(rev.c_str(), nullptr, 10) == -1;
}

float randomUnit() {
    static std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<uint32_t> distribution(0, 0x7FFFFFFF);
    return static_cast<float>(distribution(generator)) * std::ldexp(1.0f, -31);
}

}  // namespace

const VNLogGraphEntryLine* findCommonContextLine(const std::string& context,
                                                 const VNLogGraphEntry::Lines& lines) {
    for (const auto& line : lines) {
        if (line.lineContext() == context) {
            return &line;
        }
    }
    return nullptr;
}

bool isColourInLogGraphLines(const VNLogGraphColour& colour, const VNLogGraphEntry::Lines* lines) {
    if (!lines || !colour.isHSB()) {
        return false;
    }
    for (const auto& line : *lines) {
        if (line.lineColour.hueBrightnessSimilarTo(colour.hue, colour.brightness)) {
            return true;
        }
    }
    return false;
}

bool isColourInLogGraphEntry(const VNLogGraphColour& colour, const VNLogGraphEntry* entry) {
    if (!entry || !colour.isHSB()) {
        return false;
    }
    if (entry->commitColour.hueBrightnessSimilarTo(colour.hue, colour.brightness)) {
        return true;
    }
    return isColourInLogGraphLines(colour, &entry->lineColumns);
}

VNLogGraphColour newLogGraphColourNotIn(const VNLogGraphEntry& entry,
                                        const VNLogGraphEntry* previous,
                                        const VNLogGraphEntry::Lines& pendingMerges) {
    double hue = 0.555;
    double brightness = 0.7;
    for (int series = 0; series < 3; ++series) {
        for (int candidate = 0; candidate < 10; ++candidate) {
            VNLogGraphColour colour = VNLogGraphColour::hsb(hue, 0.6, brightness);
            if (!isColourInLogGraphEntry(colour, &entry) &&
                !isColourInLogGraphEntry(colour, previous) &&
                !isColourInLogGraphLines(colour, &pendingMerges)) {
                return colour;
            }
            hue = std::fmod(hue + 0.29, 1.0);
        }
        brightness += 0.1;
    }
    // Thirty near misses: a crowded graph. Any hue will do now.
    return VNLogGraphColour::hsb(randomUnit(), 0.6, brightness);
}

void addGraphInfoToLogRevisions(std::vector<Record>& rows,
                                std::shared_ptr<const VNLogGraphEntry> base, bool firstParent) {
    const VNLogGraphColour grey = VNLogGraphColour::grey();
    std::shared_ptr<const VNLogGraphEntry> previous = std::move(base);
    std::vector<SharedText> mergeParents;
    VNLogGraphEntry::Lines pending;

    for (Record& row : rows) {
        auto entry = std::make_shared<VNLogGraphEntry>();
        const std::string& rev = textOf(row, "rev");
        const std::string& parent1Text = textOf(row, "parentid1");
        // Made once per row and shared by every segment of the line for as long as it runs.
        SharedText parent1 = std::make_shared<const std::string>(parent1Text);

        mergeParents.clear();
        if (!firstParent) {
            const std::string& parent2 = textOf(row, "parentid2");
            if (!parent2.empty()) {
                mergeParents.push_back(std::make_shared<const std::string>(parent2));
            }
            if (const Value::Array* others = row["otherparentids"].array()) {
                for (const Value& other : *others) {
                    mergeParents.push_back(std::make_shared<const std::string>(other.toString()));
                }
            }
        }
        pending.clear();
        uint32_t lane = 0;
        bool arrived = false;
        const bool workingCopy = isWorkingCopyRevision(rev);
        const VNLogGraphEntry* prev = previous.get();
        if (prev) {
            entry->lineColumns.reserve(prev->lineColumns.size() + 1 + mergeParents.size());
        }

        auto newMergeColour = [&] {
            return workingCopy ? grey : newLogGraphColourNotIn(*entry, prev, pending);
        };

        if (prev) {
            for (const Line& old : prev->lineColumns) {
                if (old.originates || old.sharedStart) {
                    continue;  // ended in the previous row
                }
                entry->lineColumns.emplace_back(old.startCol, old.lineColour,
                                                old.sharedLineContext());
                if (old.lineContext() != rev) {
                    entry->lineColumns.back().startCol = lane++;
                } else if (arrived) {
                    // A second line converging on this revision ends at its dot.
                    Line& line = entry->lineColumns.back();
                    line.originates = true;
                    line.startCol = entry->commitColumn;
                } else {
                    entry->commitColumn = lane;
                    entry->commitColour = old.lineColour.isGrey()
                                              ? newLogGraphColourNotIn(*entry, prev, pending)
                                              : old.lineColour;
                    Line& line = entry->lineColumns.back();
                    line.lineColour = entry->commitColour;
                    line.startCol = entry->commitColumn;
                    line.setLineContext(parent1);
                    if (parent1Text.empty()) {
                        line.originates = true;  // a root revision
                    }
                    for (const SharedText& parent : mergeParents) {
                        const Line* found = findCommonContextLine(*parent, prev->lineColumns);
                        VNLogGraphColour colour =
                            found ? (workingCopy ? grey : found->lineColour) : newMergeColour();
                        Line merge(entry->commitColumn, colour, parent);
                        merge.terminates = true;
                        merge.sharedStart = found != nullptr;
                        pending.push_back(std::move(merge));
                    }
                    ++lane;
                    arrived = true;
                }
            }
        }

        if (!arrived) {
            entry->commitColumn = lane;
            entry->commitColour =
                workingCopy ? grey : newLogGraphColourNotIn(*entry, prev, pending);
            entry->lineColumns.push_back(
                Line::newHead(entry->commitColumn, entry->commitColour, parent1));
            for (const SharedText& parent : mergeParents) {
                const Line* found =
                    prev ? findCommonContextLine(*parent, prev->lineColumns) : nullptr;
                if (found) {
                    // Joins the parent's line at the lane it had at the previous row's lower edge.
                    Line merge(entry->commitColumn, workingCopy ? grey : found->lineColour, parent);
                    merge.terminates = true;
                    merge.sharedStart = true;
                    merge.startCol = found->startCol;
                    entry->lineColumns.push_back(std::move(merge));
                } else {
                    Line merge(entry->commitColumn, newMergeColour(), parent);
                    merge.terminates = true;
                    pending.push_back(std::move(merge));
                }
            }
            ++lane;
        }

        for (Line& line : pending) {
            if (line.sharedStart) {
                const Line* target = findCommonContextLine(line.lineContext(), entry->lineColumns);
                line.startCol = target ? target->startCol : 0;
            } else {
                line.startCol = lane++;
            }
            entry->lineColumns.push_back(std::move(line));
        }

        if (auto description = row["descriptionentry"].objectAs<VNLogGraphColoured>()) {
            description->setBaseColour(entry->commitColour);
        }
        row.set("graph", entry);
        previous = std::move(entry);
    }
}

}  // namespace vn::graph
