// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"

namespace qsn {

/// Tests of a command on a scan of their own: a folder, and what one does with it.
class ImportedScan : public testing::Test {
protected:
    ProgramOptions Here() const { return {m_folder.Path(), {}, false}; }
    ProgramResult Run(const std::vector<std::string>& arguments) const { return RunQsn(arguments, Here()); }

    /// Makes scan.qsn (or `name`) of a PTX text.
    void Import(const std::string& ptx, const std::vector<std::string>& options = {},
                const std::string& name = "scan.qsn") {
        m_folder.Write("source.ptx", ptx);
        ImportFile("source.ptx", options, name);
    }
    void ImportFile(const std::string& path, const std::vector<std::string>& options = {},
                    const std::string& name = "scan.qsn") {
        std::vector<std::string> arguments = {"import", "-q", "--force", path, name};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const ProgramResult result = Run(arguments);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }

    /// What a run that goes well writes to standard output.
    std::string Output(const std::vector<std::string>& arguments) const {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.err, "") << arguments[0];
        return result.out;
    }
    /// The same with --json, parsed.
    nlohmann::json OutputJson(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        return nlohmann::json::parse(Output(arguments), nullptr, false);
    }
    /// The run fails with this exit code, says `said` on standard error and nothing else.
    void ExpectFailure(const std::vector<std::string>& arguments, int exitCode,
                       const std::string& said) const {
        const ProgramResult result = Run(arguments);
        std::string line;
        for (const std::string& argument : arguments)
            line += " " + argument;
        EXPECT_EQ(result.exitCode, exitCode) << line << "\n" << result.err;
        EXPECT_EQ(result.out, "") << line;
        EXPECT_NE(result.err.find(said), std::string::npos) << line << "\n" << result.err;
    }

    TemporaryFolder m_folder;
};

}  // namespace qsn
