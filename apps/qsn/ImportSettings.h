// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

#include "kxexchange/ImportScan.h"

namespace CLI {
class App;
}

namespace qsn {

/// `--fast`, `--small` and `--plain`: codecs for every component at once.
struct CodecPresetFlags {
    bool fast = false;   ///< quickest to read
    bool small = false;  ///< smallest, and still quick to read
    bool plain = false;  ///< what every reader knows

    bool Any() const { return fast || small || plain; }
    /// \throws UsageError  more than one was given
    void Check() const;
    /// Sets the codecs of `options`; all of them are lossless.
    void Apply(kxexchange::ImportOptions& options) const;
};
/// Adds the three flags.
void DefineCodecPresets(CLI::App& app, CodecPresetFlags& flags);

// Each takes the text of one option of `qsn import` over into `options`.
// All throw UsageError, which says what was expected, when the text cannot be meant.

/// "256" or "512x128": columns x rows of a patch.
void ApplyPatch(const std::string& text, kxexchange::ImportOptions& options);
/// "range=grid", "angles=grid-fast", "intensity=snappy", "color=rgb".
std::pair<kxexchange::Codec kxexchange::ImportOptions::*, kxexchange::Codec> ParseCodec(
    const std::string& text);
/// The same, put into `options`.
void ApplyCodec(const std::string& text, kxexchange::ImportOptions& options);
/// "range=0.1" [mm], "vertical=1e-6", "horizontal=1e-6" or "angles=1e-6" [rad].
void ApplyScale(const std::string& text, kxexchange::ImportOptions& options);
/// "jpeg" or "lossless".
void ApplyColor(const std::string& text, kxexchange::ImportOptions& options);

}  // namespace qsn
