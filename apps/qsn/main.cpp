// SPDX-License-Identifier: MIT
#include "Command.h"
#include "Console.h"
#include "Interrupt.h"

int main(int count, char** values) {
    qsn::CatchInterrupts();
    return qsn::RunCommandLine(qsn::ArgumentsAsUtf8(count, values));
}
