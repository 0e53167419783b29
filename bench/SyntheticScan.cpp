// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

#include "CompareScan.h"

namespace {

constexpr uint32_t kSide = 256;

using Vector = std::array<double, 3>;

double Dot(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// Random numbers that depend on a place alone (the mixing of SplitMix64).
uint64_t Mixed(uint64_t value) {
    value += 0x9E3779B97F4A7C15U;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}
double Share(uint64_t seed) {
    return static_cast<double>(Mixed(seed) >> 11) * 0x1p-53;
}
double Normal(uint64_t seed) {
    const double radius = std::sqrt(-2 * std::log(1 - Share(2 * seed)));
    return radius * std::cos(2 * std::numbers::pi * Share(2 * seed + 1));
}

struct Hit {
    double range = std::numeric_limits<double>::infinity();
    double albedo = 0;
    double cosine = 1;
    bool wall = false;
};
struct Sphere {
    Vector centre;
    double radius, albedo;
};
struct Box {
    Vector low, high;
    double albedo;
};

class Room {
public:
    Room() {
        for (uint64_t i = 0; i < 60; ++i) {
            const Sphere sphere{Place(1000 + 8 * i), 0.05 + 0.45 * Share(1003 + 8 * i),
                                0.1 + 0.8 * Share(1004 + 8 * i)};
            if (Dot(sphere.centre, sphere.centre) > 1) m_spheres.push_back(sphere);
        }
        for (uint64_t i = 0; i < 40; ++i) {
            Vector low = Place(5000 + 8 * i), high{};
            low[2] = kLow[2];
            for (std::size_t k = 0; k < 3; ++k)
                high[k] = low[k] + 0.1 + 1.1 * Share(5003 + k + 8 * i);
            const bool around = low[0] < 0.5 && low[1] < 0.5 && high[0] > -0.5 && high[1] > -0.5;
            if (!around) m_boxes.push_back({low, high, 0.1 + 0.8 * Share(5006 + 8 * i)});
        }
    }

    Hit Cast(const Vector& d) const {
        Hit hit;
        constexpr double kAlbedos[2][3] = {{0.5, 0.55, 0.3}, {0.6, 0.7, 0.8}};
        for (std::size_t k = 0; k < 3; ++k) {
            const double t = (d[k] < 0 ? kLow[k] : kHigh[k]) / d[k];
            if (t < hit.range) hit = {t, kAlbedos[d[k] < 0 ? 0 : 1][k], std::abs(d[k]), true};
        }
        for (const Sphere& s : m_spheres) {
            const double b = Dot(d, s.centre);
            const double q = b * b - Dot(s.centre, s.centre) + s.radius * s.radius;
            const double t = q > 0 && b > 0 ? b - std::sqrt(q) : hit.range;
            if (t < hit.range) hit = {t, s.albedo, std::sqrt(q) / s.radius, false};
        }
        for (const Box& box : m_boxes) {
            double enter = 0, leave = hit.range, cosine = 1;
            for (std::size_t k = 0; k < 3; ++k) {
                const double t0 = box.low[k] / d[k], t1 = box.high[k] / d[k];
                if (std::min(t0, t1) > enter) {
                    enter = std::min(t0, t1);
                    cosine = std::abs(d[k]);
                }
                leave = std::min(leave, std::max(t0, t1));
            }
            if (enter > 0 && enter < leave) hit = {enter, box.albedo, cosine, false};
        }
        return hit;
    }

    // A window in one wall and one in the ceiling.
    static bool IsOpen(const Vector& p, bool wall) {
        if (!wall) return false;
        const bool window = p[0] > kHigh[0] - 0.01 && std::abs(p[1]) < 3 && p[2] > -0.6 && p[2] < 2;
        const bool roof = p[2] > kHigh[2] - 0.01 && std::abs(p[0] - 1) < 1.9 && std::abs(p[1]) < 2.2;
        return window || roof;
    }

private:
    static constexpr Vector kLow{-4.1, -6.4, -1.7}, kHigh{7.3, 5.2, 2.4};
    static Vector Place(uint64_t seed) {
        Vector place{};
        for (std::size_t k = 0; k < 3; ++k)
            place[k] = kLow[k] + (kHigh[k] - kLow[k]) * Share(seed + k);
        return place;
    }
    std::vector<Sphere> m_spheres;
    std::vector<Box> m_boxes;
};

void Put(ComparePatch& patch, std::size_t at, int64_t value) {
    for (uint32_t k = 0; k < patch.elementBytes; ++k)
        patch.values[at * patch.elementBytes + k] = static_cast<unsigned char>(value >> (8 * k));
}

int64_t Microradians(double angle) {
    return std::llround(angle * 1e6);
}

}  // namespace

CompareScan MakeSyntheticScan(uint32_t columns, uint32_t rows) {
    CompareScan scan;
    constexpr std::pair<const char*, uint32_t> kComponents[] = {
        {"range", 4}, {"vertical angle", 4}, {"horizontal angle", 4}, {"luminance 16", 2}};
    const uint32_t across = (columns + kSide - 1) / kSide, down = (rows + kSide - 1) / kSide;
    for (const auto& [name, bytes] : kComponents) {
        CompareComponent& component = scan.components.emplace_back();
        component.name = name;
        component.cells = uint64_t{columns} * rows;
        component.patches.resize(std::size_t{across} * down);
        for (ComparePatch& patch : component.patches)
            patch = {kSide, kSide, bytes, std::vector<unsigned char>(std::size_t{kSide} * kSide * bytes)};
    }
    const Room room;
    const double step = 2 * std::numbers::pi / columns, firstVertical = 0.01;
    const double verticalStep = std::numbers::pi * 150 / 180 / rows;
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint32_t column = 0; column < columns; ++column) {
            const uint64_t cell = (uint64_t{row} * columns + column) * 8;
            const double ownVertical = firstVertical + row * verticalStep, ownHorizontal = column * step;
            // The instrument turns while it sweeps a column.
            const double drift = 0.4 * step * (1 - static_cast<double>(row) / rows);
            const double vertical = ownVertical + 8e-6 * Normal(cell);
            const double horizontal = ownHorizontal + drift + 8e-6 * Normal(cell + 1);
            const Vector d{std::sin(vertical) * std::cos(horizontal),
                           std::sin(vertical) * std::sin(horizontal), std::cos(vertical)};
            const Hit hit = room.Cast(d);
            const Vector p{d[0] * hit.range, d[1] * hit.range, d[2] * hit.range};
            const bool none = Room::IsOpen(p, hit.wall) || Share(cell + 6) < 0.004;
            const double shade = 1 + 0.15 * std::sin(9 * (p[0] + p[1] + p[2]));
            const double light =
                30000 * hit.albedo * shade * (0.3 + 0.7 * hit.cosine) / (1 + 0.1 * hit.range);
            const std::size_t patch = std::size_t{row / kSide} * across + column / kSide;
            const std::size_t at = std::size_t{row % kSide} * kSide + column % kSide;
            const int64_t values[] = {
                none ? 0 : std::max<int64_t>(1, std::llround((hit.range + 1.5e-3 * Normal(cell + 2)) * 1e4)),
                Microradians(none ? ownVertical : vertical), Microradians(none ? ownHorizontal : horizontal),
                none ? 0 : std::clamp<int64_t>(std::llround(light + 128 * Normal(cell + 3)), 1, 65535)};
            for (std::size_t k = 0; k < 4; ++k)
                Put(scan.components[k].patches[patch], at, values[k]);
            scan.returns += !none;
        }
    }
    return scan;
}
