// Finger assignment for a shape. Strings are grouped by how far above the
// lowest fretted fret they stand (R0 to R3); each group is given fingers by a
// fixed table of grips, in the order R0, R3, R2, R1, so that the index finger
// anchors the shape and the little finger reaches first.
#include "fq/core/ChordEngine.h"

#include <algorithm>
#include <array>

namespace fq::core {
namespace {

using Group = std::vector<int>; // string indices, rising

struct Hand {
    std::array<int, 6> fingers{};
    std::array<bool, 5> used{}; // index 1 to 4

    bool isFree(int finger) const { return !used[static_cast<std::size_t>(finger)]; }
    void put(const Group& group, std::initializer_list<int> fingersInOrder) {
        auto finger = fingersInOrder.begin();
        for (int string : group) {
            fingers[static_cast<std::size_t>(string)] = *finger;
            used[static_cast<std::size_t>(*finger)] = true;
            ++finger;
        }
    }
};

bool adjacent(int a, int b) {
    return b - a == 1;
}
bool allAdjacent(const Group& g) {
    for (std::size_t i = 1; i < g.size(); ++i)
        if (!adjacent(g[i - 1], g[i])) return false;
    return true;
}
bool firstPairAdjacent(const Group& g) {
    return adjacent(g[0], g[1]);
}
bool lastPairAdjacent(const Group& g) {
    return adjacent(g[1], g[2]);
}
bool onlyFirstPairAdjacent(const Group& g) {
    return firstPairAdjacent(g) && !lastPairAdjacent(g);
}
bool onlyLastPairAdjacent(const Group& g) {
    return !firstPairAdjacent(g) && lastPairAdjacent(g);
}
bool neitherPairAdjacent(const Group& g) {
    return !firstPairAdjacent(g) && !lastPairAdjacent(g);
}

void assignLowest(Hand& hand, const Group& r0, bool gap, std::size_t others) {
    switch (r0.size()) {
    case 1:
        hand.put(r0, {1});
        break;
    case 2:
        if (!allAdjacent(r0) && gap)
            hand.put(r0, {1, 2});
        else if (others > 2)
            hand.put(r0, {1, 1});
        else
            hand.put(r0, {1, 2});
        break;
    case 3:
        if (!allAdjacent(r0)) {
            if (!gap)
                hand.put(r0, {1, 1, 1});
            else if (onlyLastPairAdjacent(r0))
                hand.put(r0, {1, 2, 2});
            else if (onlyFirstPairAdjacent(r0))
                hand.put(r0, {1, 1, 2});
            else
                hand.put(r0, {1, 2, 3});
        } else if (others == 0) {
            hand.put(r0, {1, 2, 3});
        } else {
            hand.put(r0, {1, 1, 1});
        }
        break;
    case 4:
        if (!gap)
            hand.put(r0, {1, 1, 1, 1});
        else
            hand.put(r0, {1, 2, 3, 4});
        break;
    default:
        break; // five or six strings at the lowest fret: no grip
    }
}

void assignThreeAbove(Hand& hand, const Group& r3, bool r1AndR2Empty) {
    const auto free = [&](int f) { return hand.isFree(f); };
    switch (r3.size()) {
    case 1:
        if (free(4)) hand.put(r3, {4});
        break;
    case 2:
        if (allAdjacent(r3)) {
            if (free(4)) hand.put(r3, {4, 4});
        } else if (free(3) && free(4)) {
            hand.put(r3, {3, 4});
        }
        break;
    case 3:
        if (allAdjacent(r3)) {
            if (free(4)) hand.put(r3, {4, 4, 4});
        } else if ((neitherPairAdjacent(r3) || (onlyLastPairAdjacent(r3) && r1AndR2Empty)) &&
                   free(2) && free(3) && free(4)) {
            hand.put(r3, {2, 3, 4});
        } else if (onlyFirstPairAdjacent(r3) && free(3) && free(4)) {
            hand.put(r3, {3, 3, 4});
        } else if (onlyLastPairAdjacent(r3) && free(3) && free(4) && (!r1AndR2Empty || !free(2))) {
            hand.put(r3, {3, 4, 4});
        }
        break;
    default:
        break;
    }
}

/// Returns whether the group got the three-finger barre 3, 3, 3.
bool assignTwoAbove(Hand& hand, const Group& r2) {
    const auto free = [&](int f) { return hand.isFree(f); };
    switch (r2.size()) {
    case 1:
        if (free(3))
            hand.put(r2, {3});
        else if (free(4))
            hand.put(r2, {4});
        else if (free(2))
            hand.put(r2, {2});
        break;
    case 2:
        if (allAdjacent(r2)) {
            if (free(3) && free(4))
                hand.put(r2, {3, 4});
            else if (!free(4) && free(3))
                hand.put(r2, {3, 3});
            else if (!free(3) && free(2))
                hand.put(r2, {2, 2});
            else if (!free(2) && !free(3) && free(1))
                hand.put(r2, {1, 1});
        } else {
            if (free(3) && free(4))
                hand.put(r2, {3, 4});
            else if (!free(4) && free(2) && free(3))
                hand.put(r2, {2, 3});
        }
        break;
    case 3:
        if (allAdjacent(r2)) {
            if (free(3)) {
                hand.put(r2, {3, 3, 3});
                return true;
            }
            if (free(4)) hand.put(r2, {4, 4, 4});
        } else if (neitherPairAdjacent(r2)) {
            if (free(2) && free(3) && free(4))
                hand.put(r2, {2, 3, 4});
            else if (free(2) && free(3) && !free(4) && free(1))
                hand.put(r2, {1, 2, 3});
        } else if (onlyFirstPairAdjacent(r2)) {
            if (free(3) && free(4))
                hand.put(r2, {3, 3, 4});
            else if (!free(4) && free(2) && free(3))
                hand.put(r2, {2, 2, 3});
            else if (!free(3) && free(1) && free(2))
                hand.put(r2, {1, 1, 2});
        } else {
            if (free(3) && free(4))
                hand.put(r2, {3, 4, 4});
            else if (!free(4) && free(2) && free(3))
                hand.put(r2, {2, 3, 3});
            else if (!free(3) && free(1) && free(2))
                hand.put(r2, {1, 2, 2});
        }
        break;
    default:
        break;
    }
    return false;
}

void assignOneAbove(Hand& hand, const Group& r1, const Group& r2, const Group& r3) {
    const auto free = [&](int f) { return hand.isFree(f); };
    switch (r1.size()) {
    case 1:
        if (free(2)) {
            hand.put(r1, {2});
        } else if (free(3) && free(4)) {
            hand.put(r1, {3});
        } else if (!free(3) && free(4)) {
            // the ring finger's strings move to the little finger to make room
            for (auto& finger : hand.fingers)
                if (finger == 3) finger = 4;
            hand.used[4] = true;
            hand.put(r1, {3});
        } else if (!free(4) && free(1)) {
            hand.put(r1, {1});
        }
        break;
    case 2:
        if (allAdjacent(r1)) {
            if (free(2) && free(3)) {
                hand.put(r1, {2, 3});
            } else if (!free(3) && !free(4) && free(2)) {
                hand.put(r1, {2, 2});
            } else if (!free(3) && free(4) && free(2)) {
                if (r2.size() + r3.size() == 1) {
                    hand.put(r2.empty() ? r3 : r2, {4});
                    hand.put(r1, {2, 3});
                } else {
                    hand.put(r1, {2, 2});
                }
            }
        } else {
            if (free(2) && free(3))
                hand.put(r1, {2, 3});
            else if (!free(3) && free(1) && free(2))
                hand.put(r1, {1, 2});
        }
        break;
    case 3:
        if (allAdjacent(r1)) {
            if (free(2))
                hand.put(r1, {2, 2, 2});
            else if (free(3))
                hand.put(r1, {3, 3, 3});
        } else if (free(2) && free(3) && free(4)) {
            hand.put(r1, {2, 3, 4});
        } else if (onlyFirstPairAdjacent(r1) && free(2) && free(3)) {
            hand.put(r1, {2, 2, 3});
        } else if (onlyLastPairAdjacent(r1) && free(2) && free(3)) {
            hand.put(r1, {2, 3, 3});
        } else if (neitherPairAdjacent(r1) && free(2) && free(3) && free(1)) {
            hand.put(r1, {1, 2, 3});
        } else if (onlyFirstPairAdjacent(r1) && !free(3) && free(1) && free(2)) {
            hand.put(r1, {1, 1, 2});
        } else if (onlyLastPairAdjacent(r1) && !free(3) && free(1) && free(2)) {
            hand.put(r1, {1, 2, 2});
        }
        break;
    default:
        break;
    }
}

} // namespace

std::vector<int> ChordEngine::fingering(std::span<const int> frets) {
    if (frets.size() != 6) return {};
    std::array<int, 6> f{};
    std::copy(frets.begin(), frets.end(), f.begin());
    const auto fretted = [&](int fret) { return fret > 0; };
    if (std::none_of(f.begin(), f.end(), fretted)) return {};

    int lowest = 1000;
    int highest = 0;
    for (int fret : f) {
        if (fretted(fret)) lowest = std::min(lowest, fret);
        highest = std::max(highest, fret);
    }
    if (highest > 4) {
        for (int& fret : f)
            if (fretted(fret)) fret -= lowest - 1;
        lowest = 1;
    }

    std::array<Group, 4> groups;
    for (int string = 0; string < 6; ++string) {
        const int above = f[static_cast<std::size_t>(string)] - lowest;
        if (fretted(f[static_cast<std::size_t>(string)]) && above <= 3)
            groups[static_cast<std::size_t>(above)].push_back(string);
    }
    const auto& [r0, r1, r2, r3] = groups;

    bool gap = false;
    if (r0.size() >= 2)
        for (int string = r0.front() + 1; string < r0.back(); ++string)
            gap = gap || f[static_cast<std::size_t>(string)] <= 0;

    Hand hand;
    assignLowest(hand, r0, gap, r1.size() + r2.size() + r3.size());
    assignThreeAbove(hand, r3, r1.empty() && r2.empty());
    const bool ringBarre = assignTwoAbove(hand, r2);
    assignOneAbove(hand, r1, r2, r3);

    // With no index finger down, the whole hand moves one finger lower.
    const auto holds = [&](int finger) {
        return std::find(hand.fingers.begin(), hand.fingers.end(), finger) != hand.fingers.end();
    };
    while (!holds(1) && (holds(2) || holds(3) || holds(4)))
        for (auto& finger : hand.fingers)
            if (finger > 0) --finger;
    // A ring-finger barre over three strings is easier as middle, ring and little.
    if (ringBarre && hand.isFree(2) && hand.isFree(4)) hand.put(r2, {2, 3, 4});

    return {hand.fingers.begin(), hand.fingers.end()};
}

} // namespace fq::core
