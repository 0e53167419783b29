// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "kxbase/kxOutFile.h"
#include "kxio/MainFileHeader.h"

namespace kxio {

/// An edit of a closed file that is there as a whole or not at all, whenever it is interrupted: by an error,
/// by the end of the program or by a loss of power that keeps of what was not yet synced any part, in any
/// order.
///
/// The file belongs to one edit at a time. Who reads it meanwhile without asking sees the old file or the new
/// one. Where an earlier edit was interrupted, the next one clears up first: what was promised is done, what
/// was not is taken away.
class FileEdit {
public:
    /// Opens and locks the file, and completes what an earlier edit promised. The file can be read from then
    /// on and stays as it is until the edit's own calls.
    /// \throws KXWritingException "Cannot write file": it cannot be opened for writing, or completing failed
    /// \throws KXFileLockedException "File is being edited"
    explicit FileEdit(const std::wstring& path);

    /// Takes away what an interrupted edit left behind the last extended record (`FindInterruptedTail`).
    /// \returns the end of the file, where records will be appended
    uint64_t End(const MainFileHeader& mainHeader);

    /// Refuses an append to a file that was cut: what goes to its end would be read as part of the record
    /// that the cut went through, or as one that was lost. \param end  from `End`
    /// \throws KXBadInputException "File is damaged": the file ends before its extended records begin, or
    /// before the end of a record that the main header names
    void RequireUncut(const MainFileHeader& mainHeader, uint64_t end) const;

    /// Appends whole records at `End()`, and one hash record behind them.
    ///
    /// \param records  the first one begins to exist last, when all others are on the medium. May be empty,
    ///                 then so does the note
    /// \param note     an `IntegrityExtendedHeader`, which exists when its last bytes do; later than the
    ///                 records. May be empty
    /// When it throws, the file is as long as before, if the system allows it.
    void Append(uint64_t end, std::span<const unsigned char> records, std::span<const unsigned char> note);

    /// Writes over bytes in the middle of the file, at most 4096.
    void Overwrite(uint64_t position, std::span<const unsigned char> bytes);

    /// Ends the edit. \throws KXWritingException
    void Close();

private:
    /// The tag of the first record when everything else that was written is on the medium; then that, too.
    void WriteTagLast(uint64_t position, std::span<const unsigned char> records);
    void WriteAt(uint64_t position, std::span<const unsigned char> bytes);

    std::wstring m_path;
    kxbase::kxOutFile m_out;
};

}  // namespace kxio
