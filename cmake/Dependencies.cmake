# Third-party packages, all from Debian. scripts/install-deps.sh installs them.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(embree 3 REQUIRED)
find_package(TBB REQUIRED)  # Embree schedules its BVH builds on it
find_package(OpenGL REQUIRED COMPONENTS OpenGL EGL)

# Debian's CMake package for OpenImageIO points at an OpenCV folder that is not
# installed, so it is found through pkg-config instead.
pkg_check_modules(OIIO REQUIRED IMPORTED_TARGET OpenImageIO)
add_library(shadenet::oiio ALIAS PkgConfig::OIIO)

# Colour management of display-referred outputs.
pkg_check_modules(OCIO REQUIRED IMPORTED_TARGET OpenColorIO)
add_library(shadenet::ocio ALIAS PkgConfig::OCIO)

pkg_check_modules(FFTW REQUIRED IMPORTED_TARGET fftw3f)
add_library(shadenet::fftw ALIAS PkgConfig::FFTW)

pkg_check_modules(OSMESA IMPORTED_TARGET osmesa)

# A reference gradient noise for bench/noise.cpp; the benchmark builds without it.
find_path(LIBNOISE_INCLUDE_DIR libnoise/noise.h)
find_library(LIBNOISE_LIBRARY noise)
