// SPDX-License-Identifier: MIT
// Changes a closed scan file in place, and tells for each edit what became of the file's bytes.
//
//   edit_scan FILE.qsn         (works on copies beside it)
#include <kxio/kxio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<char> BytesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Runs an edit and compares the file before and after.
template <class Edit>
void Watch(const std::string& what, const std::filesystem::path& path, Edit edit) {
    const std::vector<char> before = BytesOf(path);
    edit();
    const std::vector<char> after = BytesOf(path);
    size_t changed = 0;
    for (size_t i = 0; i < before.size(); ++i)
        changed += before[i] != after[i] ? 1 : 0;
    std::cout << what << ": " << changed << " bytes changed, " << after.size() - before.size() << " added\n";
}

void Texts(const std::wstring& path) {
    kxio::QSNInfo::AddMessage(path, L"Checked against the plan");
    kxio::QSNInfo::AddWarning(path, L"The door was open");
    kxio::QSNInfo::AddHQLink(path, kxbase::UUID(L"6ba7b810-9dad-11d1-80b4-00c04fd430c8"));
    for (const std::wstring& message : kxio::QSNInfo::GetMessages(path))
        std::cout << "  " << kxbase::Encode_UTF8(message) << '\n';
}

// Turns the scan by a right angle about its vertical axis and puts it 12 metres to the east.
void Register(const std::wstring& path) {
    const kxbase::RegistrationInformation old = kxio::QSNInfo::GetRegistrationInfo(path);
    kxmath::Frame frame = old.ToFrame();
    frame.Rotate(frame.GetOrigin(), frame.GetZAxis(), 1.5707963267948966);
    const kxmath::Vector3 place = frame.GetOrigin() + kxmath::Vector3{12, 0, 0};
    kxio::QSNInfo::SetRegistrationInfo(
        path, kxbase::RegistrationInformation(
                  kxmath::Frame(frame.GetXAxis(), frame.GetYAxis(), frame.GetZAxis(), place)));
}

// A thumbnail of one colour; any JPEG image will do.
void Paint(const std::wstring& path) {
    const unsigned width = 60;
    const unsigned height = 20;
    std::vector<unsigned char> rgb;
    for (unsigned i = 0; i < width * height; ++i)
        rgb.insert(rgb.end(), {200, 120, 40});
    std::vector<unsigned char> jpeg;
    if (kxcodecs::JPEG::Encode(rgb.data(), width, height, 90, jpeg)) kxio::SetThumbnail(path, jpeg);
}

// The files of a scan that was stored in parts: SCAN.qsn, SCAN.qsn1, SCAN.qsn2 and whatever shares the stem.
void ListParts(const std::wstring& path) {
    if (!kxio::QSNInfo::IsMergeNeeded(path)) return;
    for (const std::wstring& part : kxio::QSNInfo::GetQSNtoMergeList(path))
        std::cout << "part " << std::filesystem::path(part).filename().string() << '\n';
    std::cout << kxio::QSNInfo::GetAllDependencyFileList(path).size() << " files belong to it\n";
}

void Edit(const std::filesystem::path& scan) {
    const std::filesystem::path file = scan.parent_path() / "edited.qsn";
    std::filesystem::copy_file(scan, file, std::filesystem::copy_options::overwrite_existing);
    const std::wstring path = kxbase::Decode_UTF8(file.string());

    Watch("texts and link", file, [&] { Texts(path); });
    Watch("registration", file, [&] { Register(path); });
    Watch("speckle flag", file, [&] { kxio::QSNFileRecovery::SetSpekleBit(path); });
    std::cout << "  is now " << kxio::QSNInfo::GetSpeckleFlag(path) << '\n';
    Paint(path);

    for (const char* name : {"edited.qsn1", "edited.txt"})
        std::filesystem::copy_file(scan, scan.parent_path() / name,
                                   std::filesystem::copy_options::overwrite_existing);
    ListParts(path);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: edit_scan FILE.qsn\n";
        return 2;
    }
    try {
        Edit(argv[1]);
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
