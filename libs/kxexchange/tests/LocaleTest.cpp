// SPDX-License-Identifier: MIT
// A locale with a decimal comma and points between thousands changes no byte that is written and no value
// that is read.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <map>

#include "TestTools.h"

namespace kxexchange::testing {
namespace {

class Comma : public std::numpunct<char> {
protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};
class WideComma : public std::numpunct<wchar_t> {
protected:
    wchar_t do_decimal_point() const override { return L','; }
    wchar_t do_thousands_sep() const override { return L'.'; }
    std::string do_grouping() const override { return "\3"; }
};

// The locale of streams always; that of C where the system has one with a comma, or can make one.
class CommaLocale {
public:
    explicit CommaLocale(const TempFolder& folder) : m_before(std::locale()) {
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"})
            m_ofC = m_ofC || std::setlocale(LC_NUMERIC, name) != nullptr;
        if (!m_ofC) {
            const std::string made = (folder / "de_DE.UTF-8").string();
            const std::string line = "localedef -i de_DE -f UTF-8 '" + made + "' >/dev/null 2>&1";
            if (std::system(line.c_str()) == 0) {
                setenv("LOCPATH", folder.Path().c_str(), 1);
                m_ofC = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
                unsetenv("LOCPATH");
            }
        }
        std::locale::global(std::locale(std::locale(m_before, new Comma), new WideComma));
    }
    ~CommaLocale() {
        std::locale::global(m_before);
        std::setlocale(LC_ALL, "C");
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    bool OfC() const { return m_ofC; }

private:
    std::locale m_before;
    bool m_ofC = false;
};

// PTX, then .qsn, then every format, and what is said on the way.
std::map<std::string, std::string> ConvertAll(const std::string& ptx) {
    const TempFolder folder;
    std::map<std::string, std::string> results;
    WriteFile(folder / "scan.ptx", ptx);
    ImportOptions options;
    options.threads = 1;
    const ImportReport report =
        ImportScan(*OpenScanSource(folder / "scan.ptx"), 0, folder / "scan.qsn", options);
    const auto say = [](const LossReport& losses) {
        std::string text;
        for (const LossEntry& entry : losses.entries)
            text += entry.field + ": " + entry.detail + "; " + entry.inverse + "\n";
        return text;
    };
    results["import"] = say(report.losses);
    for (const std::string& warning : report.warnings)
        results["import"] += warning;
    for (const SinkFormat& format : SinkFormats()) {
        const std::filesystem::path path = folder / ("back" + std::string(format.endings[0]));
        ExportOptions exportOptions;
        exportOptions.sink.threads = 1;
        const std::string name(format.name);
        results[name + " losses"] =
            say(ExportScan(folder / "scan.qsn", path, format.name, exportOptions).losses);
        // What is made from a random UUID or the time differs by itself: of those formats, what is read back.
        if (format.name != "E57" && format.name != "LAS") results[name] = ReadFile(path);
        for (const SourceFormat& source : SourceFormats()) {
            if (source.name != format.name) continue;
            const Scan back = ReadScan(*OpenScanSource(path));
            std::string& values = results[name + " values"];
            for (const Cell& cell : back.cells) {
                for (const double value : {cell.x, cell.y, cell.z, cell.intensity})
                    values.append(reinterpret_cast<const char*>(&value), sizeof value);
            }
        }
    }
    return results;
}

TEST(Locale, ADecimalCommaChangesNothing) {
    Sweep sweep;
    sweep.columns = 40;
    sweep.rows = 50;  // counts above 1000, which a locale would write as 2.000
    sweep.missing = 0.1;
    std::string ptx = PtxText(MakeSweep(sweep), 40, 50, true);
    ptx.replace(ptx.find("0 0 0 1\n"), 8, "123456.789 -0.001 1.5e3 1\n");
    const auto plain = ConvertAll(ptx);
    const TempFolder folder;
    const CommaLocale comma(folder);
    if (comma.OfC()) {
        char text[8];
        std::snprintf(text, sizeof text, "%.1f", 1.5);
        ASSERT_STREQ(text, "1,5");
    }
    const auto local = ConvertAll(ptx);
    ASSERT_EQ(local.size(), plain.size());
    for (const auto& [name, result] : plain)
        EXPECT_TRUE(local.at(name) == result) << name;
    EXPECT_GE(plain.size(), 2 * SinkFormats().size());
}

}  // namespace
}  // namespace kxexchange::testing
