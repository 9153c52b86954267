#include "cli/GraphRenderer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string_view>

namespace vn::cli {

namespace {

enum Direction : unsigned { Up = 1, Down = 2, Left = 4, Right = 8 };

struct Cell {
    unsigned directions = 0;
    const VNLogGraphColour* colour = nullptr;
    bool dot = false;
};

// The box-drawing character of each combination of directions, indexed by the direction bits.
constexpr std::string_view BoxGlyphs[16] = {
    " ", "│", "│", "│", "─", "╯", "╮", "┤", "─", "╰", "╭", "├", "─", "┴", "┬", "┼",
};

std::string_view glyph(const Cell& cell, bool workingCopy) {
    if (cell.dot) {
        return workingCopy ? "◌" : "●";
    }
    return BoxGlyphs[cell.directions & 15];
}

std::string colourEscape(const VNLogGraphColour& colour, bool trueColour) {
    int r, g, b;
    colour.rgb(r, g, b);
    char buffer[32];
    if (trueColour) {
        std::snprintf(buffer, sizeof buffer, "\x1b[38;2;%d;%d;%dm", r, g, b);
    } else {
        // The 6x6x6 cube of the 256-colour palette.
        auto level = [](int v) { return (v * 5 + 127) / 255; };
        std::snprintf(buffer, sizeof buffer, "\x1b[38;5;%dm",
                      16 + 36 * level(r) + 6 * level(g) + level(b));
    }
    return buffer;
}

// Where a line runs within its row: from `top` at the upper edge (or the dot) to `bottom` at the
// lower edge (or the dot).
struct Path {
    uint32_t top;
    uint32_t bottom;
    bool hasUpper;
    bool hasLower;
};

Path pathOf(const VNLogGraphEntryLine& line, uint32_t commit) {
    return {line.terminates ? commit : line.endCol, line.originates ? commit : line.startCol,
            !line.terminates, !line.originates};
}

uint32_t lanesOf(const VNLogGraphEntry& entry) {
    uint32_t lanes = entry.commitColumn + 1;
    for (const auto& line : entry.lineColumns) {
        lanes = std::max({lanes, line.endCol + 1, line.startCol + 1});
    }
    return lanes;
}

}  // namespace

namespace {

// Without colour a cell is only its directions and whether it holds the dot (hollow for the
// working copy).
constexpr uint8_t DotCell = 16;
constexpr uint8_t HollowDotCell = 32;

struct PlainGlyph {
    char bytes[4];
    uint8_t length;
};

constexpr std::array<PlainGlyph, 64> plainGlyphs() {
    std::array<PlainGlyph, 64> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        std::string_view text = i & HollowDotCell ? std::string_view("◌")
                                : i & DotCell     ? std::string_view("●")
                                                  : BoxGlyphs[i & 15];
        for (std::size_t b = 0; b < text.size(); ++b) {
            table[i].bytes[b] = text[b];
        }
        table[i].length = static_cast<uint8_t>(text.size());
    }
    return table;
}

constexpr std::array<PlainGlyph, 64> PlainGlyphs = plainGlyphs();

// The drawing without colour, at least `width` lanes wide (wider when the row is): the common
// case of output to a file or a pipe, where a long history is written. Straight runs of lanes are
// marked whole, and each cell is one table look-up.
void appendPlainRowText(std::string& out, const VNLogGraphEntry& entry, bool workingCopy,
                        uint32_t width) {
    // Kept all zero between rows: each row clears the cells it used.
    thread_local std::vector<uint8_t> cells;
    uint32_t lanes = std::max(width, entry.commitColumn + 1);
    auto reach = [&](uint32_t lane) {
        lanes = std::max(lanes, lane + 1);
        if (2 * std::size_t(lane) + 2 > cells.size()) {
            cells.resize(std::max<std::size_t>(2 * std::size_t(lane) + 2, 2 * cells.size()), 0);
        }
    };
    reach(lanes - 1);
    for (const auto& pointer : entry.lineColumns.runs()) {
        const VNLogGraphLines::Run& run = *pointer;
        if (run.plain) {
            const uint32_t first = run.lines.front().startCol;
            const uint32_t count = static_cast<uint32_t>(run.lines.size());
            reach(first + count - 1);
            uint8_t* cell = cells.data() + 2 * std::size_t(first);
            for (uint32_t i = 0; i < count; ++i) {
                cell[2 * i] |= Up | Down;
            }
            continue;
        }
        for (const VNLogGraphEntryLine& line : run.lines) {
            reach(std::max(line.endCol, line.startCol));
            if (line.isBlank) {
                continue;
            }
            Path path = pathOf(line, entry.commitColumn);
            std::size_t top = 2 * std::size_t(path.top), bottom = 2 * std::size_t(path.bottom);
            if (path.hasUpper) {
                cells[top] |= Up;
            }
            if (path.hasLower) {
                cells[bottom] |= Down;
            }
            if (top != bottom) {
                std::size_t left = std::min(top, bottom), right = std::max(top, bottom);
                cells[left] |= Right;
                cells[right] |= Left;
                for (std::size_t x = left + 1; x < right; ++x) {
                    cells[x] |= Left | Right;
                }
            }
        }
    }
    cells[2 * std::size_t(entry.commitColumn)] |= workingCopy ? HollowDotCell : DotCell;
    const std::size_t count = 2 * std::size_t(lanes);
    const std::size_t used = out.size();
    // Four bytes are copied for every glyph, at most three of them kept.
    out.resize(used + 3 * count + 1);
    char* end = out.data() + used;
    for (std::size_t i = 0; i < count; ++i) {
        const PlainGlyph& glyph = PlainGlyphs[cells[i]];
        std::memcpy(end, glyph.bytes, 4);
        end += glyph.length;
    }
    std::memset(cells.data(), 0, count);
    out.resize(std::size_t(end - out.data()));
}

// One row's coloured drawing `width` lanes wide, appended to `out`; `cells` is scratch space.
void appendRowText(std::string& out, const VNLogGraphEntry& entry, bool workingCopy, uint32_t width,
                   bool trueColour, std::vector<Cell>& cells) {
    cells.assign(2 * std::size_t(width), Cell{});
    for (const auto& line : entry.lineColumns) {
        if (line.isBlank) {
            continue;
        }
        Path path = pathOf(line, entry.commitColumn);
        std::size_t top = 2 * std::size_t(path.top), bottom = 2 * std::size_t(path.bottom);
        if (path.hasUpper) {
            cells[top].directions |= Up;
            cells[top].colour = &line.lineColour;
        }
        if (path.hasLower) {
            cells[bottom].directions |= Down;
            cells[bottom].colour = &line.lineColour;
        }
        if (top != bottom) {
            std::size_t left = std::min(top, bottom), right = std::max(top, bottom);
            cells[left].directions |= Right;
            cells[right].directions |= Left;
            for (std::size_t x = left; x <= right; ++x) {
                if (x != left && x != right) {
                    cells[x].directions |= Left | Right;
                }
                cells[x].colour = &line.lineColour;
            }
        }
    }
    Cell& dot = cells[2 * std::size_t(entry.commitColumn)];
    dot.dot = true;
    dot.colour = &entry.commitColour;

    const VNLogGraphColour* current = nullptr;
    for (const Cell& cell : cells) {
        std::string_view g = glyph(cell, workingCopy);
        bool blank = g.size() == 1;
        if (!blank && cell.colour && cell.colour != current) {
            out += colourEscape(*cell.colour, trueColour);
            current = cell.colour;
        }
        out += g;
    }
    if (current) {
        out += "\x1b[0m";
    }
}

}  // namespace

std::vector<std::string> drawGraphText(const std::vector<GraphRow>& rows, bool colour,
                                       bool trueColour) {
    uint32_t width = 1;
    for (const GraphRow& row : rows) {
        if (row.graph) {
            width = std::max(width, lanesOf(*row.graph));
        }
    }
    std::vector<std::string> out;
    out.reserve(rows.size());
    std::vector<Cell> cells;
    for (const GraphRow& row : rows) {
        if (!row.graph) {
            out.emplace_back(2 * width, ' ');
            continue;
        }
        std::string text;
        if (colour) {
            appendRowText(text, *row.graph, row.workingCopy, width, trueColour, cells);
        } else {
            appendPlainRowText(text, *row.graph, row.workingCopy, width);
        }
        out.push_back(std::move(text));
    }
    return out;
}

void appendGraphText(std::string& out, const VNLogGraphEntry& entry, bool workingCopy, bool colour,
                     bool trueColour) {
    if (!colour) {
        appendPlainRowText(out, entry, workingCopy, 1);
        return;
    }
    thread_local std::vector<Cell> cells;
    appendRowText(out, entry, workingCopy, lanesOf(entry), trueColour, cells);
}

namespace {

constexpr double kLane = 11.0;
constexpr double kOffset = 5.5;
constexpr double kRowHeight = 22.0;

double laneX(uint32_t lane) {
    return kLane * lane + kOffset;
}

std::string escapeXml(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                if (static_cast<unsigned char>(c) >= 0x20 || c == '\t') {
                    out.push_back(c);
                }
        }
    }
    return out;
}

}  // namespace

std::string drawGraphSvg(const std::vector<GraphRow>& rows) {
    uint32_t width = 1;
    for (const GraphRow& row : rows) {
        if (row.graph) {
            width = std::max(width, lanesOf(*row.graph));
        }
    }
    const double graphWidth = kLane * width + kOffset;
    const double textWidth = 640;
    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << graphWidth + textWidth
        << "\" height=\"" << kRowHeight * rows.size() << "\" font-family=\"sans-serif\" "
        << "font-size=\"12\">\n<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const GraphRow& row = rows[i];
        if (!row.graph) {
            continue;
        }
        const VNLogGraphEntry& entry = *row.graph;
        const double top = kRowHeight * i, mid = top + kRowHeight / 2, bottom = top + kRowHeight;
        // Bends stay close to the middle so that lines meet their neighbours straight.
        const double bend = kRowHeight / 5;
        std::ostringstream strokes, colours;
        for (const auto& line : entry.lineColumns) {
            if (line.isBlank) {
                continue;
            }
            Path path = pathOf(line, entry.commitColumn);
            std::ostringstream d;
            double x1 = laneX(path.top), x2 = laneX(path.bottom);
            d << "M" << x1 << " " << (path.hasUpper ? top : mid);
            if (path.hasUpper && path.hasLower) {
                d << " L" << x1 << " " << mid - bend << " L" << x2 << " " << mid + bend;
            }
            d << " L" << x2 << " " << (path.hasLower ? bottom : mid);
            strokes << "<path d=\"" << d.str()
                    << "\" fill=\"none\" stroke=\"white\" stroke-width=\"4\"/>\n";
            colours << "<path d=\"" << d.str() << "\" fill=\"none\" stroke=\""
                    << line.lineColour.hexString() << "\" stroke-width=\"2\"/>\n";
        }
        svg << strokes.str() << colours.str();
        double cx = laneX(entry.commitColumn);
        double radius = row.workingCopy ? 10.5 / 2 : 7.0 / 2;
        svg << "<circle cx=\"" << cx << "\" cy=\"" << mid << "\" r=\"" << radius << "\" fill=\""
            << entry.commitColour.hexString() << "\" stroke=\"white\" stroke-width=\"1\"/>\n";
        if (row.workingCopy) {
            svg << "<circle cx=\"" << cx << "\" cy=\"" << mid << "\" r=\"2\" fill=\"white\"/>\n";
        }
        double x = graphWidth + 6;
        svg << "<text x=\"" << x << "\" y=\"" << mid + 4 << "\">";
        if (!row.labels.empty()) {
            svg << "<tspan font-weight=\"bold\" fill=\"" << entry.commitColour.hexString() << "\">"
                << escapeXml(row.labels) << "</tspan> ";
        }
        svg << escapeXml(row.text) << "</text>\n";
    }
    svg << "</svg>\n";
    return svg.str();
}

}  // namespace vn::cli
