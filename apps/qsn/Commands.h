// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Command.h"

namespace qsn {

std::unique_ptr<Command> MakeExportCommand();
std::unique_ptr<Command> MakeImportCommand();
std::unique_ptr<Command> MakeInfoCommand();
std::unique_ptr<Command> MakePreviewCommand();

}  // namespace qsn
