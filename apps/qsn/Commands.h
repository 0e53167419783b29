// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Command.h"

namespace qsn {

std::unique_ptr<Command> MakeBoxCommand();
std::unique_ptr<Command> MakeConvertCommand();
std::unique_ptr<Command> MakeDiffCommand();
std::unique_ptr<Command> MakeDumpCommand();
std::unique_ptr<Command> MakeEditCommand();
std::unique_ptr<Command> MakeExportCommand();
std::unique_ptr<Command> MakeHistogramCommand();
std::unique_ptr<Command> MakeImportCommand();
std::unique_ptr<Command> MakeInfoCommand();
std::unique_ptr<Command> MakeLocateCommand();
std::unique_ptr<Command> MakeLodCommand();
std::unique_ptr<Command> MakePartsCommand();
std::unique_ptr<Command> MakePreviewCommand();
std::unique_ptr<Command> MakeProtectCommand();
std::unique_ptr<Command> MakeRecodeCommand();
std::unique_ptr<Command> MakeRecoverCommand();
std::unique_ptr<Command> MakeStatsCommand();
std::unique_ptr<Command> MakeThumbnailCommand();
std::unique_ptr<Command> MakeVerifyCommand();

}  // namespace qsn
