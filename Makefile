# make test   installs what is missing, builds and runs every test
# make demo   builds and runs the main example
# make bench  runs the benchmarks against CGAL
# make fuzz   runs the mesh fuzzer with random seeds for FUZZ_SECONDS (600);
#             shrunk failures land in tests/data/fuzz_*.txt
# SANITIZE=1  builds and tests with AddressSanitizer and UBSan in build-san/
# TSAN=1      builds and tests with ThreadSanitizer in build-tsan/
BUILD_TYPE ?= Release
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 600
ifeq ($(SANITIZE),1)
BUILD ?= build-san
CMAKE_FLAGS += -DVASK2D_SANITIZE=ON -DVASK2D_BUILD_BENCH=OFF
else ifeq ($(TSAN),1)
BUILD ?= build-tsan
CMAKE_FLAGS += -DVASK2D_TSAN=ON -DVASK2D_BUILD_BENCH=OFF
else
BUILD ?= build
endif

PACKAGES = g++ cmake make pkg-config libgmp-dev libgtest-dev libbenchmark-dev libcgal-dev ghostscript

.PHONY: all deps configure build test demo bench fuzz clean
all: build

deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  SUDO=""; [ "$$(id -u)" -eq 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	cd $(BUILD) && ./examples/vask2d_demo

bench: build
	cd $(BUILD) && for b in bench/bench_*; do [ -x "$$b" ] && "$$b" || exit 1; done

fuzz: configure
	cmake --build $(BUILD) -j $(JOBS) --target vask_fuzz
	mkdir -p $(BUILD)/fuzz-work
	cd $(BUILD)/fuzz-work && ../tests/fuzz/vask_fuzz --seconds $(FUZZ_SECONDS) --out $(CURDIR)/tests/data $(FUZZ_ARGS)

clean:
	rm -rf build build-san build-debug build-tsan
