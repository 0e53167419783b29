// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "kxexchange/Cell.h"

namespace kxexchange {

/// A temporary file that sorts records into groups: all of them go in, in any order; then each group comes
/// out, its records in the order in which they went in. Memory is a few tens of megabytes. The file is
/// removed with the object.
class E57Spill {
public:
    /// `groupRecords`: how many records each group will get, exactly. `folder`: empty for the system's.
    /// \throws kxbase::KXFileNotOpenException  the file cannot be made
    E57Spill(const std::filesystem::path& folder, const std::vector<uint64_t>& groupRecords);
    ~E57Spill();
    E57Spill(const E57Spill&) = delete;
    E57Spill& operator=(const E57Spill&) = delete;

    /// `place` comes back with the cell.
    /// \throws kxbase::KXWritingException
    void Add(size_t group, uint32_t place, const Cell& cell);
    /// Nothing more is added.
    /// \throws kxbase::KXWritingException, kxbase::KXFileNotOpenException
    void Close();
    /// \throws kxbase::KXFileNotOpenException  the file was cut meanwhile
    void ForEach(size_t group, const std::function<void(uint32_t place, const Cell& cell)>& take);

private:
    struct Record {
        Cell cell;
        uint32_t place;
    };
    struct Group {
        uint64_t first = 0;    // record of the file
        uint64_t written = 0;  // records
        std::vector<Record> waiting;
    };
    void Flush(Group& group);
    [[noreturn]] void FailOpen() const;

    std::filesystem::path m_path;
    std::unique_ptr<kxbase::kxOutFile> m_out;
    std::unique_ptr<kxbase::kxInFile> m_in;
    std::vector<Group> m_groups;
    size_t m_waitingLimit;
};

}  // namespace kxexchange
