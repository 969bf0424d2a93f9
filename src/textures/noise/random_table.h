#pragma once
// The two forms of the noise library's random table. Each is stored with two
// guard zeros in front of its 65535 values and three zeros behind them; a
// table pointer points at the first value.
#include <array>

constexpr int kRandomTableSize = 65535;
constexpr int kRandomTableFront = 2;
constexpr int kRandomTableBack = 3;
constexpr int kRandomTableStorageSize = kRandomTableFront + kRandomTableSize + kRandomTableBack;

using TrandomTableStorage = std::array<float, kRandomTableStorageSize>;

// A fixed list of uniformly distributed values, made once by
// scripts/make_random_table.py and stored as data.
extern const TrandomTableStorage kDefaultRandomTableStorage;

// The form older scenes were rendered with: a 16-bit congruential sequence.
extern const TrandomTableStorage kOldRandomTableStorage;
