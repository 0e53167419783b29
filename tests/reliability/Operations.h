// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/GivenByReader.h"

namespace reliability {

using Bytes = std::vector<unsigned char>;

/// What an operation gave, for comparing a disturbed run with one that was not.
struct Outcome {
    std::string text;
    std::optional<kxtest::Given> scan;  ///< without what differs from run to run: dates, fresh identifiers
    bool told = false;                  ///< it said by itself that something is missing
};

/// Something that people do with files. It works on one thread and always makes the same calls.
struct Operation {
    std::string name;
    std::vector<std::pair<std::string, Bytes>> sources;  ///< names in the folder, and content
    std::string edited;                                  ///< the source that it changes; empty: none
    std::string output;                                  ///< the file that it makes; empty: none
    bool atOnce = false;  ///< the output appears under its name when it is complete
    std::function<void(const std::filesystem::path& folder, Outcome& outcome)> run;
};

/// All of them.
const std::vector<Operation>& Operations();
/// \throws std::out_of_range  there is none of that name
const Operation& OperationNamed(const std::string& name);

/// Puts the sources into a folder.
void PutSources(const Operation& operation, const std::filesystem::path& folder);
/// Adds what the operation left in the folder to the outcome.
void LookAtResult(const Operation& operation, const std::filesystem::path& folder, Outcome& outcome);
/// What a reader gives out of a file, without what differs from run to run; nothing when it does not open.
std::optional<kxtest::Given> ReadResult(const std::filesystem::path& path);

/// Whether two files give the same.
bool SameScan(const std::optional<kxtest::Given>& a, const std::optional<kxtest::Given>& b);

/// What an edited file may be found as: before the edit, or after it.
class EditStates {
public:
    explicit EditStates(const Operation& operation);
    /// Looks at a file that an interrupted edit left: it is the old one or the new one, verification finds no
    /// error in it, and the same edit made again gives what it would have given on the whole file. Fails the
    /// test otherwise. The file is edited by this.
    /// \returns true for the new state
    bool Look(const std::filesystem::path& folder) const;

private:
    std::optional<kxtest::Given> Again(const std::filesystem::path& folder) const;

    const Operation& m_operation;
    std::optional<kxtest::Given> m_old;
    std::optional<kxtest::Given> m_new;
    std::optional<kxtest::Given> m_newAgain;  ///< of the same edit on the new state
};

/// The scan that the operation "Write" makes, patch by patch. `patchDone` is told how many have been taken.
void WriteScan(const std::wstring& path, bool hashes, const std::function<void(unsigned)>& patchDone = {});

}  // namespace reliability
