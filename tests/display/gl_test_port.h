#pragma once
// One off-screen OpenGL context for the whole test program, made current on
// each call: texture objects need a current one.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "display/gl_port.h"

inline T3dPort& testPort() {
    static std::unique_ptr<T3dPort> p = [] {
        std::string error;
        auto made = T3dPort::create(8, 8, error);
        EXPECT_TRUE(made) << error;
        return made;
    }();
    p->makeCurrent();
    return *p;
}
