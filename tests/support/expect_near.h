#pragma once
// Three floats (a colour, a point, a direction) close channel by channel,
// the case named on failure.
#include <gtest/gtest.h>

#include <string>

#include "framework/host/math.h"

inline void expectNear(const T3Float& got, const T3Float& want, const std::string& what, float tolerance = 1e-6f) {
    EXPECT_NEAR(got.x, want.x, tolerance) << what;
    EXPECT_NEAR(got.y, want.y, tolerance) << what;
    EXPECT_NEAR(got.z, want.z, tolerance) << what;
}
