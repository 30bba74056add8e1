# Thin front over CMake. `make demo` and `make test` install what is missing and build first.
# SANITIZE=address,undefined or SANITIZE=thread builds and tests in a folder of its own.
SANITIZE ?=
comma := ,
ifneq ($(SANITIZE),)
BUILD ?= build-$(subst $(comma),-,$(SANITIZE))
CMAKE_FLAGS += -DSANITIZE=$(SANITIZE)
endif
# The leak check's settings and the reports that are not ours (tests/sanitizers/lsan.supp).
ifneq ($(findstring address,$(SANITIZE)),)
# The list of suppressions used stays out of standard error, which tests check line by line.
TEST_ENV := LSAN_OPTIONS=use_tls=0:print_suppressions=0:suppressions=$(CURDIR)/tests/sanitizers/lsan.supp
endif
# ThreadSanitizer runs the tests whose code of ours runs on several threads: the engine through the
# player and its Lua bridge, and the source reader.
ifneq ($(findstring thread,$(SANITIZE)),)
TEST_SELECTION := -R "^(NativePlayer|SourceReader|Sources/|lua\.player)"
endif
BUILD ?= build
JOBS ?= 2
PREFIX ?= /usr/local
CMAKE_FLAGS ?=

.PHONY: all setup configure build demo test bench soak install clean fuzz

all: build

setup:
	@./scripts/setup.sh

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_INSTALL_PREFIX=$(PREFIX) $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j$(JOBS)

demo: setup
	@$(MAKE) --no-print-directory build
	@./scripts/demo.sh $(BUILD)

test: setup
	@$(MAKE) --no-print-directory build
	cd $(BUILD) && $(TEST_ENV) ctest --output-on-failure -j$(JOBS) -LE soak_long $(TEST_SELECTION)

# The long soak: 1,000 player cycles and 10,000 inspections, with the process's figures.
soak: setup
	@$(MAKE) --no-print-directory build
	cd $(BUILD) && $(TEST_ENV) ctest --output-on-failure --verbose -L soak_long

bench: setup
	@./scripts/setup.sh mpv
	@$(MAKE) --no-print-directory build
	$(BUILD)/bin/bench_ratio
	python3 bench/inspect.py $(BUILD)
	python3 bench/playback.py $(BUILD)
	python3 bench/window_playback.py $(BUILD)
	python3 bench/seeking.py $(BUILD)
	python3 bench/batch.py $(BUILD)

# The fuzz targets under libFuzzer for SECONDS each (scripts/fuzz.sh), in build-fuzz/.
fuzz:
	@./scripts/fuzz.sh $(SECONDS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf $(BUILD)
