#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "model/VNLogGraphEntryLine.h"

// The line segments of one graph row, held as short immutable runs that a row shares with the
// row above wherever their segments are the same. In a wide graph most lanes pass a row
// unchanged, so a history costs what changes from row to row rather than rows times lanes.
// Reads like a vector; a change copies only the run it touches.
class VNLogGraphLines {
  public:
    static constexpr std::size_t RunLength = 8;

    struct Run {
        std::vector<VNLogGraphEntryLine> lines;
        // Which candidates of the colour generator the run's colours rule out.
        uint32_t similarColours = 0;
        // Full, and every segment runs straight down its own lane, the lanes consecutive, each
        // heading for a revision, without flags: the next row can take such a run as it is
        // whenever it starts in the same lane and does not hold the next revision.
        bool plain = false;
    };
    using RunPointer = std::shared_ptr<const Run>;

    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = VNLogGraphEntryLine;
        using difference_type = std::ptrdiff_t;
        using pointer = const VNLogGraphEntryLine*;
        using reference = const VNLogGraphEntryLine&;

        const_iterator() = default;
        reference operator*() const { return (*run_)->lines[index_]; }
        pointer operator->() const { return &(*run_)->lines[index_]; }
        const_iterator& operator++() {
            if (++index_ == (*run_)->lines.size()) {
                ++run_;
                index_ = 0;
            }
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const const_iterator& other) const {
            return run_ == other.run_ && index_ == other.index_;
        }

      private:
        friend class VNLogGraphLines;
        const_iterator(const RunPointer* run, std::size_t index) : run_(run), index_(index) {}
        const RunPointer* run_ = nullptr;
        std::size_t index_ = 0;
    };

    VNLogGraphLines() = default;

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const VNLogGraphEntryLine& operator[](std::size_t i) const {
        return runs_[i / RunLength]->lines[i % RunLength];
    }
    // A writable segment: its run is copied first when another row shares it.
    VNLogGraphEntryLine& operator[](std::size_t i);
    const VNLogGraphEntryLine& front() const { return (*this)[0]; }
    const VNLogGraphEntryLine& back() const { return (*this)[size_ - 1]; }
    VNLogGraphEntryLine& back() { return (*this)[size_ - 1]; }

    const_iterator begin() const { return {runs_.data(), 0}; }
    const_iterator end() const { return {runs_.data() + runs_.size(), 0}; }

    void push_back(VNLogGraphEntryLine line);
    template <typename... Args>
    VNLogGraphEntryLine& emplace_back(Args&&... args) {
        push_back(VNLogGraphEntryLine(std::forward<Args>(args)...));
        return back();
    }
    void clear() {
        runs_.clear();
        size_ = 0;
    }
    void reserve(std::size_t lines) { runs_.reserve((lines + RunLength - 1) / RunLength); }

    // ---- Runs, for the layout and for measuring what rows share ----
    const std::vector<RunPointer>& runs() const { return runs_; }
    // Appends a whole run (full except possibly the last one appended).
    void appendRun(RunPointer run);
    // The candidates of the colour generator that the colours of all segments rule out.
    uint32_t similarColours() const;

  private:
    Run& writableRun(std::size_t index);

    std::vector<RunPointer> runs_;
    std::size_t size_ = 0;
};

bool operator==(const VNLogGraphLines& a, const VNLogGraphLines& b);
