// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/Exceptions.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MainFileHeader.h"
#include "kxio/ScanHeader.h"
#include "services/FileWindow.h"
#include "services/RecordSurvey.h"

namespace kxio {

/// What the bytes of a piece of a file are.
enum class PieceKind {
    Record,   ///< any but a chunk record
    Chunk,    ///< a chunk record and its data
    Listed,   ///< the data of a chunk that a table lists without a record in front of it
    Preview,  ///< a chunk without a record
    Unknown,  ///< nothing that could be told
};

/// A piece of a file.
struct FilePiece {
    PieceKind kind = PieceKind::Unknown;
    uint64_t offset = 0;
    uint64_t bytes = 0;  ///< cut at the end of the file
    uint64_t tag = 0;    ///< of a record or chunk record
    FoundChunk chunk;    ///< of a chunk, also of one that is only listed
    bool cut = false;    ///< the file ends before the piece does

    uint64_t End() const { return offset + bytes; }
};

/// Which bytes of a file, damaged or not, are what.
///
/// Headers and tables are those that the main header points to; where it points to none, those that a search
/// found. Tells what there is, not what is wrong with it.
struct FileLayout {
    Survey survey;
    std::optional<MainFileHeader> mainHeader;    ///< readable at the start of the file
    std::optional<kxbase::KXException> refusal;  ///< of a main header of another version
    std::optional<ScanHeader> scanHeader;
    std::optional<uint64_t> scanHeaderPosition;
    std::optional<uint64_t> tablePosition;         ///< of the patches' lookup table
    std::optional<uint64_t> previewTablePosition;  ///< of the previews'
    LookupTable patches;                           ///< empty without a table
    LookupTable previews;
    /// By offset. Pieces may overlap in a damaged file; what lies inside a preview or a listed chunk and
    /// looks like a record is none and is not here.
    std::vector<FilePiece> pieces;
};

/// \throws what `progress` throws
FileLayout FindLayout(FileWindow& file, const SurveyProgress& progress);

/// Reads the record at a position. False, and `problem` filled, when none lies there or it is refused.
bool ReadRecord(FileWindow& file, uint64_t position, kxbase::IOHeader& record, kxbase::ErrorContext& problem);

}  // namespace kxio
