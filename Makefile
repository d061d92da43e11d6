# Two commands set up everything on a fresh Debian 12 machine:
#   make run    install what is missing, build, run the main job on the bundled sample
#   make test   install what is missing, build, run every test
# Installing: make install PREFIX=DIR (no root needed for a DIR of one's own),
# make package (build/corvantis_<version>_<arch>.deb).
# CORV_WERROR=ON turns warnings into errors (CI does this).

BUILD_DIR   ?= build
BUILD_TYPE  ?= Release
CORV_WERROR ?= OFF
JOBS        ?= $(shell nproc)
PYTHON      := /usr/bin/python3
SAMPLE      := data/sample/sample.hdr
RUN_OUT     := $(BUILD_DIR)/run
PREFIX      ?= /usr/local

export CCACHE_DIR ?= $(CURDIR)/.ccache
# Paths relative to the checkout, so that other checkouts of the project share hits.
export CCACHE_BASEDIR ?= $(CURDIR)
export CCACHE_SLOPPINESS := pch_defines,time_macros,include_file_mtime,include_file_ctime

.PHONY: run test deps build sanitize fuzz clean format install package

deps:
	@./scripts/install-deps.sh

build: deps
	@mkdir -p $(BUILD_DIR)
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DCORV_WERROR=$(CORV_WERROR) \
	  -DPython3_EXECUTABLE=$(PYTHON) -DCORV_VIEWER=ON $(CMAKE_EXTRA) > $(BUILD_DIR)/configure.log \
	  || (cat $(BUILD_DIR)/configure.log; exit 1)
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@mkdir -p $(RUN_OUT)
	$(BUILD_DIR)/bin/corv info $(SAMPLE)
	$(BUILD_DIR)/bin/corv convert $(SAMPLE) $(RUN_OUT)/sample16.fla --data-type 2
	@cat $(RUN_OUT)/sample16.hdr
	@# The viewer; without a display it renders itself into a picture (TAVREL_ARGS
	@# adds options such as --process illuminant,reflectance or --view reflectance).
	@if [ -n "$$DISPLAY" ]; then \
	  $(BUILD_DIR)/bin/tavrel $(TAVREL_ARGS) $(SAMPLE); \
	else \
	  xvfb-run -a $(BUILD_DIR)/bin/tavrel --screenshot $(BUILD_DIR)/tavrel-screenshot.png \
	    $(TAVREL_ARGS) $(SAMPLE) </dev/null && \
	  echo "Tavrel screenshot: $(BUILD_DIR)/tavrel-screenshot.png"; \
	fi

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

install: build
	@cmake --install $(BUILD_DIR) --prefix $(PREFIX)

package: build
	@cd $(BUILD_DIR) && cpack --config CPackConfig.cmake
	@ls $(BUILD_DIR)/corvantis_*.deb

sanitize: deps
	@$(MAKE) --no-print-directory BUILD_DIR=build-asan BUILD_TYPE=Debug build \
	  CMAKE_EXTRA="-DCORV_SANITIZE=ON -DCORV_PYTHON=OFF -DCORV_BENCH=OFF -DCORV_VIEWER=ON"
	@cd build-asan && ctest --output-on-failure -j $(JOBS) -L "cpp|viewer"

# Fuzzing: every reader of untrusted input under libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer, FUZZ_SECONDS per target (CI runs a short round).
# The corpora grow in build-fuzz/corpus; a finding stops the run and is kept in
# build-fuzz/findings. See docs/robustness.md.
FUZZ_SECONDS ?= 600
fuzz: build
	@mkdir -p build-fuzz
	@CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=Debug \
	  -DCORV_FUZZ=ON -DCORV_WERROR=$(CORV_WERROR) > build-fuzz/configure.log \
	  || (cat build-fuzz/configure.log; exit 1)
	@cmake --build build-fuzz -j $(JOBS)
	@fuzz/run.sh build-fuzz $(BUILD_DIR)/bin/corv $(FUZZ_SECONDS)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	@rm -rf build build-asan build-fuzz
