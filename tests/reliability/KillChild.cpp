// SPDX-License-Identifier: MIT
// Runs one operation in a folder and is killed at one of its writes: OPERATION FOLDER WRITE PART DONE.
// DONE is a file outside the folder to which one byte is added for every patch that was taken.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Operations.h"
#include "support/SystemFaults.h"
#include "support/TempFolder.h"

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: kxio_kill_child OPERATION FOLDER WRITE PART DONE\n");
        return 2;
    }
    const std::string name = argv[1];
    const std::filesystem::path folder = argv[2];
    const int done = ::open(argv[5], O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (done < 0) return 2;
    const reliability::Operation& operation = reliability::OperationNamed(name);
    kxtest::FileFaultPlan plan;
    plan.folder = folder.string();
    plan.killAt = std::strtoull(argv[3], nullptr, 10);
    plan.killPart = static_cast<unsigned>(std::strtoul(argv[4], nullptr, 10));
    kxtest::SystemFaults::Begin(plan);
    if (name == "Write") {
        reliability::WriteScan(Wide(folder / operation.output), true, [done](unsigned) {
            if (::write(done, "+", 1) != 1) std::abort();
        });
    } else {
        reliability::Outcome outcome;
        operation.run(folder, outcome);
    }
    kxtest::SystemFaults::End();
    return 0;
}
