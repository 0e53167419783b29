// SPDX-License-Identifier: MIT
// What the command says, word by word, when a command line cannot be meant like this.
#include <gtest/gtest.h>

#include "BareScan.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

struct Refusal {
    std::vector<std::string> arguments;
    std::string said;
};

class UsageTexts : public ImportedScan {
protected:
    void SetUp() override {
        Import(MakeSmallPtx(4, 4));
        m_before = m_folder.Contents();
    }
    /// Each ends with exit code 2, says its text and where help is to be had, and changes no file.
    void ExpectRefusals(const std::vector<Refusal>& refusals) const {
        for (const Refusal& refusal : refusals) {
            std::string line = "qsn";
            for (const std::string& argument : refusal.arguments)
                line += " " + argument;
            const ProgramResult result = Run(refusal.arguments);
            EXPECT_EQ(result.exitCode, 2) << line;
            EXPECT_EQ(result.out, "") << line;
            const std::string text = "qsn: " + refusal.said + "\nTry 'qsn ";
            EXPECT_EQ(result.err.substr(0, text.size()), text) << line;
            EXPECT_TRUE(result.err.ends_with(" --help'.\n") || result.err.ends_with("'qsn --help'.\n"))
                << line;
            EXPECT_EQ(m_folder.Contents(), m_before) << line;
        }
    }

    std::map<std::string, std::string> m_before;
};

TEST_F(UsageTexts, OfTheProgramItself) {
    ExpectRefusals({
        {{"frobnicate"},
         "'frobnicate' is no command; expected one of convert, import, info, preview, export, edit, parts, "
         "thumbnail, locate, bbox, lod, histogram, verify, diff, dump, stats, protect, recode, recover"},
        {{"info", "\xff.qsn"}, "argument 2 is not valid UTF-8"},
        {{"info", "--limit-memory", "63M", "scan.qsn"},
         "--limit-memory 63M: expected a size from 64M, as in 500M or 2G"},
        {{"info", "--progress", "loud", "scan.qsn"}, "--progress loud: expected auto, never or json"},
    });
}

TEST_F(UsageTexts, OfInputsAndOutputsOfAConversion) {
    m_folder.Write("two.ptx", MakeSmallPtx(4, 4) + MakeSmallPtx(4, 4));
    std::filesystem::create_directory(m_folder.File("empty"));
    std::filesystem::create_directory(m_folder.File("out"));
    m_before = m_folder.Contents();
    ExpectRefusals({
        {{"convert", "source.ptx", "-"}, "-: --to says what standard output shall be"},
        {{"convert", "--json", "--to", "xyz", "source.ptx", "-"},
         "--json and the output - exclude each other"},
        {{"convert", "source.ptx", "two.ptx", "out/"},
         "out/: a folder; --to says what the files in it shall be"},
        {{"convert", "--scan", "Attic", "source.ptx", "out.xyz"}, "source.ptx: no scan is called 'Attic'"},
        {{"convert", "-q", "--to", "ply", "two.ptx", "-"},
         "-: several scans; --scan says which one goes to standard output"},
        {{"convert", "empty", "out.xyz"}, "empty: no scan in this folder"},
        {{"convert", "--registered", "--local", "source.ptx", "out.xyz"},
         "--registered and --local exclude each other"},
        {{"convert", "--scan", "0", "source.ptx", "out.xyz"}, "--scan 0: scans are counted from 1"},
        {{"convert", "--from", "lasso", "source.ptx", "out.xyz"},
         "--from lasso: no such format; expected one of e57, pcd, ply, pts, ptx, qsn, xyz"},
        {{"convert", "source.ptx", "out.lasso"},
         "out.lasso: unknown ending; expected .qsn, .e57, .exr, .las, .npy, .npz, .pcd, .ply, .png, .pts, "
         ".ptx, "
         ".ptx.gz, .xyz, .xyz.gz"},
        {{"convert", "--force", "scan.qsn", "scan.qsn"}, "scan.qsn: the output is the input itself"},
    });
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.File("out")));
}

TEST_F(UsageTexts, OfTwoScansThatWouldBecomeOneFile) {
    std::filesystem::create_directory(m_folder.File("other"));
    std::filesystem::create_directory(m_folder.File("out"));
    std::filesystem::copy(m_folder.File("source.ptx"), m_folder.File("other/source.ptx"));
    const ProgramResult result =
        Run({"convert", "-q", "--to", "npy", "source.ptx", "other/source.ptx", "out/"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.starts_with("qsn: out/source.npy: two scans would become this file\n"))
        << result.err;
    EXPECT_TRUE(m_folder.Has("out/source.npy"));  // the first one
}

TEST_F(UsageTexts, OfTheOptionsOfAConversion) {
    const auto convert = [](std::vector<std::string> options) {
        options.insert(options.begin(), {"convert", "source.ptx", "out.qsn"});
        return options;
    };
    ExpectRefusals({
        {{"convert", "--coordinates", "round", "source.ptx", "out.e57"},
         "--coordinates round: expected cartesian, spherical, single or double"},
        {convert({"--fast", "--small"}), "--fast, --small and --plain exclude each other"},
        {convert({"--patch", "big"}), "--patch big: expected a number from 1, or two as in 512x128"},
        {convert({"--codec", "range"}), "--codec range: expected COMPONENT=VALUE"},
        {convert({"--codec", "range=jpeg"}), "--codec range=jpeg: jpeg is for color only"},
        {convert({"--codec", "range=rgb"}), "--codec range=rgb: rgb is for color only"},
        {convert({"--codec", "range=lzma"}),
         "--codec range=lzma: 'lzma' is no codec; expected zlib, snappy, zstd, grid, grid-fast, rgb or jpeg"},
        {convert({"--codec", "height=zlib"}),
         "--codec height=zlib: 'height' has no codec; expected range, angles, intensity or color"},
        {convert({"--scale", "range=0"}), "--scale range=0: expected a number above 0"},
        {convert({"--scale", "color=1"}),
         "--scale color=1: 'color' has no scale; expected range, vertical, horizontal or angles"},
        {convert({"--color", "png"}), "--color png: expected jpeg or lossless"},
        {{"recode", "--codec", "color=jpeg", "scan.qsn", "out.qsn"},
         "--codec color=jpeg: jpeg would change the colours; 'qsn convert' does that"},
    });
}

TEST_F(UsageTexts, OfEdits) {
    ExpectRefusals({
        {{"edit", "scan.qsn"},
         "nothing to change: expected --message, --warning, a link, --registration or --speckle"},
        {{"edit", "scan.qsn", "--hq-link", "12"},
         "--hq-link 12: expected a UUID such as 01234567-89ab-cdef-0123-456789abcdef"},
        {{"edit", "scan.qsn", "--registration", "1,2"},
         "--registration 1,2: expected identity, or twelve numbers with commas between them: X axis, Y axis, "
         "Z "
         "axis, translation"},
        {{"edit", "scan.qsn", "--registration", "2,0,0,0,1,0,0,0,1,0,0,0"},
         "--registration 2,0,0,0,1,0,0,0,1,0,0,0: the axes must have length 1, stand at right angles and be "
         "right-handed"},
        {{"edit", "scan.qsn", "--message", ""}, "--message: the text is empty"},
        {{"edit", "scan.qsn", "--message", "--dry-run"}, "--message: --dry-run is an option, not a text"},
        {{"edit", "scan.qsn", "--speckle", "maybe"}, "--speckle maybe: expected on or off"},
    });
}

TEST_F(UsageTexts, OfPlacesInAScan) {
    ExpectRefusals({
        {{"locate", "scan.qsn"}, "expected one of --point, --direction and --cell"},
        {{"locate", "scan.qsn", "--cell", "1,1", "--registered"},
         "--registered goes with --point and --direction"},
        {{"locate", "scan.qsn", "--point", "1,2"}, "--point 1,2: expected x,y,z, three numbers in metres"},
        {{"locate", "scan.qsn", "--point", "0,0,0"},
         "--point 0,0,0: this is the scanner's own place, no direction leads there"},
        {{"locate", "scan.qsn", "--direction", "1,200"},
         "--direction 1,200: expected the horizontal angle and, from 0 to 180, the angle from the zenith"},
        {{"locate", "scan.qsn", "--cell", "1"}, "--cell 1: expected row,column"},
        {{"locate", "scan.qsn", "--cell", "4,0"}, "--cell 4,0: the grid has 4 rows and 4 columns"},
        {{"histogram", "scan.qsn", "--patch", "1"}, "--patch 1: expected row,column"},
        {{"histogram", "scan.qsn", "--patch", "9,9"},
         "--patch 9,9: the scan has 1 rows and 1 columns of patches"},
        {{"lod", "scan.qsn", "out.png", "--level", "0", "--row", "9"},
         "--row 9: at level 0 the scan has 1 of them"},
    });
}

TEST_F(UsageTexts, OfPicturesAndFiles) {
    ExpectRefusals({
        {{"preview", "scan.qsn", "out.png", "--size", "1x1"},
         "--size 1x1: expected WxH with sides from 16 to 32768"},
        {{"preview", "scan.qsn", "out.png", "--component", "height"},
         "'height' is no component: range, vertical, horizontal, intensity8, intensity16, color, class, "
         "segment or a "
         "number from 1"},
        {{"lod", "scan.qsn", "out.gif"}, "out.gif: unknown ending; expected .png or .raw"},
        {{"thumbnail", "scan.qsn"}, "expected either OUT or --set JPEG"},
        {{"thumbnail", "scan.qsn", "out.gif"}, "out.gif: unknown ending; expected .jpg, .jpeg or .png"},
        {{"recover", "scan.qsn"}, "either OUT or --ascii OUT is needed, and not both"},
        {{"recover", "scan.qsn", "out.qsn", "--ascii", "out.txt"},
         "either OUT or --ascii OUT is needed, and not both"},
        {{"verify", "--quick", "--full", "scan.qsn"}, "--quick, --full and --deep exclude each other"},
        {{"diff", "scan.qsn", "scan.qsn", "--tolerance", "range=-1"},
         "--tolerance range=-1: expected COMPONENT=VALUE with a number from 0"},
    });
}

TEST_F(UsageTexts, OfComponentsThatThisProgramCannotShow) {
    kxtest::ScanFileBuilder file = BareScan();
    const kxtest::Bytes bytes(256, 7);  // 16 to a cell
    file.Chunk(7, 0, 0, kxtest::LiteralChunk(bytes, 4, 4));
    // Of some kinds of histograms only the place in the file is known.
    file.Tail(kxtest::ExtendedRecord(0xb22bb13068c1b1a7ULL, kxtest::ByteList().U64(0)));
    m_folder.Write("odd.qsn", FileText(file));
    m_before = m_folder.Contents();
    ExpectRefusals({
        {{"preview", "odd.qsn", "out.png", "--component", "7"},
         "component component7 has no picture; expected range, vertical, horizontal, intensity8, intensity16 "
         "or "
         "color"},
        {{"lod", "odd.qsn", "out.png", "--component", "7", "--level", "0"},
         "component component7 has no picture; write it as .raw"},
        {{"histogram", "odd.qsn", "--component", "range"},
         "component range has no histogram that this program reads"},
    });
}

}  // namespace
}  // namespace qsn
