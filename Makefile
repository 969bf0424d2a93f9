# Entry points for people. Each target does its own set-up: missing packages
# are installed (as root), the build folder is configured, then built.
JOBS    ?= $(shell nproc)
GEN     := -G Ninja
BUILD   ?= build

PREFIX  ?= /usr/local

.PHONY: all deps build program install test test-asan test-tsan bench demo lights-demo fog-demo glow-demo contact-sheet clean

all: build

deps:
	@./scripts/install-deps.sh

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# The shadenet program and the libraries it needs, no tests or benchmarks:
# what a first run waits for.
program: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS) --target shadenet_cli

# Library, headers, program, CMake package and pkg-config file under PREFIX.
install: program
	cmake --install $(BUILD) --prefix $(PREFIX)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

build-asan/build.ninja: | deps
	cmake -S . -B build-asan $(GEN) -DCMAKE_BUILD_TYPE=Debug -DSHADENET_SANITIZE=address

# The software OpenGL's rasteriser threads are turned off: the leak checker
# stops every thread at exit, and stopping those now and then fails.
test-asan: deps build-asan/build.ninja
	cmake --build build-asan -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 LP_NUM_THREADS=0 \
	  ctest --test-dir build-asan --output-on-failure -j $(JOBS)

build-tsan/build.ninja: | deps
	cmake -S . -B build-tsan $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSHADENET_SANITIZE=thread

test-tsan: deps build-tsan/build.ninja
	cmake --build build-tsan -j $(JOBS)
	TSAN_OPTIONS="halt_on_error=1 suppressions=$(CURDIR)/scripts/tsan.supp" ctest --test-dir build-tsan --output-on-failure -j $(JOBS)

bench: build
	@for b in $(BUILD)/bin/bench_*; do echo "== $$b"; $$b --benchmark_min_time=0.2 || exit 1; done

# The showcase scene through the reference renderer; prints the image's path.
demo: program
	@mkdir -p out
	@$(BUILD)/bin/shadenet render examples/showcase.json -o out/showcase.png --quiet

# The lights example (spot with barn doors and depth-map shadows, soft area
# light, ramp-shaded objects) kept in docs/images/; prints its path.
lights-demo: program
	@$(BUILD)/bin/shadenet render examples/lights.json -o docs/images/lights.png --quiet

# The fog example (a spot light's fog, a lit fog ball, a sunlit haze) kept in
# docs/images/; prints its path.
fog-demo: program
	@$(BUILD)/bin/shadenet render examples/fog.json -o docs/images/fog.png --quiet

# The post-effects example (a glowing material, a light with glow, halo and
# lens flare) kept in docs/images/; prints its path.
glow-demo: program
	@$(BUILD)/bin/shadenet render examples/glow.json -o docs/images/glow.png --quiet

# The contact sheets of the 2D and the solid textures kept in docs/images/; prints their paths.
contact-sheet: program
	@$(BUILD)/bin/shadenet swatch --sheet textures-2d --size 160 --spp 8 -o docs/images/textures-2d.png
	@$(BUILD)/bin/shadenet swatch --sheet textures-3d --size 160 --spp 8 -o docs/images/textures-3d.png

clean:
	rm -rf $(BUILD) build-asan build-tsan
