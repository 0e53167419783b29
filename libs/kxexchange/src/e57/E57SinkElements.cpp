// SPDX-License-Identifier: MIT
// The XML elements of a scan as E57Sink writes them, and its images.
#include <cmath>

#include "E57Images.h"
#include "E57Pose.h"
#include "E57Scan.h"
#include "E57Sink.h"
#include "E57Time.h"
#include "TextFormat.h"
#include "kxbase/ByteWriter.h"

namespace kxexchange {

namespace {

void AddText(E57Node& node, const char* name, const std::string& text) {
    if (!text.empty()) node.Add(E57Node::String(name, text));
}

// The moment as an earlier E57 said it, when it is still the same moment.
void AddDate(E57Node& node, const char* name, const kxbase::Date& date, const Keepsakes& keepsakes,
             const char* key) {
    double seconds = date.IsSet() ? GpsOfDate(date) : 0;
    bool atomic = false;
    if (const auto kept = KeepsakeNumbers(keepsakes, key, 2); kept && DateOfGps((*kept)[0]) == date) {
        seconds = (*kept)[0];
        atomic = (*kept)[1] != 0;
    } else if (!date.IsSet()) {
        return;
    }
    E57Node& moment = node.Add(E57Node::Structure(name));
    moment.Add(E57Node::Float("dateTimeValue", seconds));
    moment.Add(E57Node::Integer("isAtomicClockReferenced", atomic ? 1 : 0));
}

void AddPair(E57Node& node, const std::string& name, double least, double most, const char* first,
             const char* last) {
    node.Add(E57Node::Float(name + first, least));
    node.Add(E57Node::Float(name + last, most));
}

}  // namespace

void E57Sink::AddTexts(E57Node& node) const {
    if (m_scan.original) {
        node.Add(E57Node::Vector("originalGuids"))
            .Add(E57Node::String("vectorChild", E57GuidText(*m_scan.original)));
    }
    AddText(node, "name", m_scan.name);
    AddText(node, "description", m_scan.text);
    AddText(node, "sensorVendor", m_scan.sensor.vendor);
    AddText(node, "sensorModel", m_scan.sensor.model);
    AddText(node, "sensorSerialNumber", m_scan.sensor.serial);
    AddText(node, "sensorHardwareVersion", m_scan.sensor.hardwareVersion);
    AddText(node, "sensorSoftwareVersion", m_scan.sensor.softwareVersion);
    AddText(node, "sensorFirmwareVersion", m_scan.sensor.firmwareVersion);
    constexpr std::pair<const char*, const char*> kWeather[] = {
        {"temperature", "e57-temperature"},
        {"relativeHumidity", "e57-relative-humidity"},
        {"atmosphericPressure", "e57-atmospheric-pressure"}};
    for (const auto& [name, key] : kWeather) {
        if (const auto number = KeepsakeNumbers(m_scan.keepsakes, key, 1)) {
            node.Add(E57Node::Float(name, number->front()));
        }
    }
    AddDate(node, "acquisitionStart", m_scan.acquisitionStart, m_scan.keepsakes, "e57-start");
    AddDate(node, "acquisitionEnd", m_scan.acquisitionEnd, m_scan.keepsakes, "e57-end");
}

void E57Sink::AddPose(E57Node& node) {
    const kxbase::RegistrationInformation& exact = m_scan.pose;
    if (exact == kxbase::RegistrationInformation()) return;
    const std::array<double, 3> translation{exact.Values()[9], exact.Values()[10], exact.Values()[11]};
    E57Quaternion rotation = QuaternionOf(exact);
    if (const auto kept = KeepsakeNumbers(m_scan.keepsakes, "e57-rotation", 4)) {
        const E57Quaternion before{(*kept)[0], (*kept)[1], (*kept)[2], (*kept)[3]};
        if (RegistrationOf(before, translation) == exact) rotation = before;
    }
    E57Node& pose = node.Add(E57Node::Structure("pose"));
    E57Node& turn = pose.Add(E57Node::Structure("rotation"));
    constexpr const char* kNames[] = {"w", "x", "y", "z"};
    for (size_t i = 0; i < 4; ++i)
        turn.Add(E57Node::Float(kNames[i], rotation[i]));
    E57Node& shift = pose.Add(E57Node::Structure("translation"));
    for (size_t i = 0; i < 3; ++i)
        shift.Add(E57Node::Float(kNames[i + 1], translation[i]));
    const auto written = RegistrationOf(rotation, translation);
    m_poseError = written ? RotationError(*written, exact) : 1;
    if (written != exact) {
        const std::span<const double> values(exact.Values(), kxbase::RegistrationInformation::ValueCount);
        node.Add(E57Node::String(std::string(kE57OwnPrefix) + ":registration", JoinNumbers(values)));
    }
}

void E57Sink::AddBounds(E57Node& node) const {
    if (m_scan.HasGrid()) {
        E57Node& bounds = node.Add(E57Node::Structure("indexBounds"));
        const auto add = [&](const char* name, int64_t value) { bounds.Add(E57Node::Integer(name, value)); };
        add("rowMinimum", m_fields[*m_row].minimum);
        add("rowMaximum", m_fields[*m_row].maximum);
        add("columnMinimum", m_fields[*m_column].minimum);
        add("columnMaximum", m_fields[*m_column].maximum);
        add("returnMinimum", 0);
        add("returnMaximum", 0);
    }
    if (m_intensity) {
        const auto kept = KeepsakeNumbers(m_scan.keepsakes, "e57-intensity-limits", 2);
        double least = 0, most = 0;
        if (kept) {
            least = (*kept)[0];
            most = (*kept)[1];
        } else if (m_scan.intensity.minimum && m_scan.intensity.maximum) {
            least = *m_scan.intensity.minimum;
            most = *m_scan.intensity.maximum;
        } else if (m_intensityBounds.Any()) {
            least = m_intensityBounds.least;
            most = m_intensityBounds.most;
        }
        E57Node& limits = node.Add(E57Node::Structure("intensityLimits"));
        AddPair(limits, "intensity", least, most, "Minimum", "Maximum");
    }
    if (m_color) {
        E57Node& limits = node.Add(E57Node::Structure("colorLimits"));
        const int64_t full = m_fields[(*m_color)[0]].maximum;
        for (const char* const channel : {"Red", "Green", "Blue"}) {
            limits.Add(E57Node::Integer("color" + std::string(channel) + "Minimum", 0));
            limits.Add(E57Node::Integer("color" + std::string(channel) + "Maximum", full));
        }
    }
    if (!m_bounds[0].Any()) return;
    if (m_spherical) {
        E57Node& bounds = node.Add(E57Node::Structure("sphericalBounds"));
        AddPair(bounds, "range", m_bounds[0].least, m_bounds[0].most, "Minimum", "Maximum");
        AddPair(bounds, "elevation", m_bounds[2].least, m_bounds[2].most, "Minimum", "Maximum");
        AddPair(bounds, "azimuth", m_bounds[1].least, m_bounds[1].most, "Start", "End");
    } else {
        E57Node& bounds = node.Add(E57Node::Structure("cartesianBounds"));
        AddPair(bounds, "x", m_bounds[0].least, m_bounds[0].most, "Minimum", "Maximum");
        AddPair(bounds, "y", m_bounds[1].least, m_bounds[1].most, "Minimum", "Maximum");
        AddPair(bounds, "z", m_bounds[2].least, m_bounds[2].most, "Minimum", "Maximum");
    }
}

void E57Sink::WriteImages() {
    for (const ImageDescription& image : m_scan.images) {
        const std::vector<unsigned char> bytes = image.load ? image.load() : std::vector<unsigned char>();
        if (bytes.empty()) continue;
        m_pages.Align(4);
        const uint64_t start = m_pages.Position();
        std::array<unsigned char, kE57BlobHeaderBytes> header{};
        kxbase::ByteWriter out(header);
        out.Zeros(8);
        out.U64((kE57BlobHeaderBytes + bytes.size() + 3) / 4 * 4);
        m_pages.Append(header);
        m_pages.Append(bytes);
        m_pages.Align(4);

        E57Node node = E57Node::Structure("vectorChild");
        node.Add(E57Node::String("guid", E57GuidText(kxbase::UUID::Generate())));
        AddText(node, "name", image.name);
        node.Add(E57Node::String("associatedData3DGuid", m_guid));
        E57Node& shown = node.Add(E57Node::Structure("visualReferenceRepresentation"));
        E57Node& blob = shown.Add(E57Node::Structure(
            image.encoding == ImageDescription::Encoding::Jpeg ? "jpegImage" : "pngImage"));
        blob.type = E57Node::Type::Blob;
        blob.fileOffset = E57Physical(start);
        blob.count = bytes.size();
        shown.Add(E57Node::Integer("imageWidth", static_cast<int64_t>(image.width)));
        shown.Add(E57Node::Integer("imageHeight", static_cast<int64_t>(image.height)));
        if (image.role != ImageDescription::Role::VisualReference) ++m_projectionsLost;
        m_images2D.Add(std::move(node));
    }
}

}  // namespace kxexchange
