# Convenience front for the CMake build. Everything builds out of tree under build/.

JOBS ?= 2
CTEST_JOBS ?= 1
CMAKE ?= cmake
CTEST ?= ctest
CLANG_FORMAT ?= clang-format

RELEASE_DIR := build/release
SANITIZE_DIR := build/sanitize
TSAN_DIR := build/tsan
FUZZ_DIR := build/fuzz
FUZZ_SECONDS ?= 60
NATIVE_DIR := build/native
PGO_DIR := build/pgo
# The profile build's training: the bench search at this depth and perft a few plies shallower
# than perftbench's own counts.
PGO_BENCH_DEPTH ?= 8
PGO_PERFT_OFFSET ?= -2
# Options the profile build adds, for instance PGO_OPTIONS=-DZELMARK_NATIVE=ON.
PGO_OPTIONS ?=
SPEED_TARGETS := zelmark bench perftbench

.PHONY: all run test sanitize tsan fuzz bench native pgo format clean

all: $(RELEASE_DIR)/CMakeCache.txt
	$(CMAKE) --build $(RELEASE_DIR) --target zelmark bitbasegen -j $(JOBS)

$(RELEASE_DIR)/CMakeCache.txt:
	$(CMAKE) -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release

$(SANITIZE_DIR)/CMakeCache.txt:
	$(CMAKE) -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELMARK_SANITIZE=ON

$(TSAN_DIR)/CMakeCache.txt:
	$(CMAKE) -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELMARK_TSAN=ON

$(FUZZ_DIR)/CMakeCache.txt:
	$(CMAKE) -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
		-DZELMARK_FUZZ=ON -DZELMARK_TESTS=OFF

run: all
	./$(RELEASE_DIR)/zelmark

test: $(RELEASE_DIR)/CMakeCache.txt
	$(CMAKE) --build $(RELEASE_DIR) -j $(JOBS)
	$(CTEST) --test-dir $(RELEASE_DIR) --output-on-failure --no-tests=error -j $(CTEST_JOBS)

# Optimised with debug information rather than -O0: the sanitizers still see everything and
# the larger tests stay fast enough.
# A failed allocation returns null, as it does outside the sanitizer: the table's allocation
# shrinks on that.
sanitize: $(SANITIZE_DIR)/CMakeCache.txt
	$(CMAKE) --build $(SANITIZE_DIR) -j $(JOBS)
	ASAN_OPTIONS=strict_string_checks=1:detect_stack_use_after_return=1:allocator_may_return_null=1 \
	UBSAN_OPTIONS=print_stacktrace=1 \
	$(CTEST) --test-dir $(SANITIZE_DIR) --output-on-failure --no-tests=error -j $(CTEST_JOBS)

# The threaded tests under the thread sanitizer: the search's, and the xboard session's with its
# command queue. The shared table and the move filter are lockless by design; their races are
# listed in tests/tsan.supp and nothing else may race.
tsan: $(TSAN_DIR)/CMakeCache.txt
	$(CMAKE) --build $(TSAN_DIR) --target test_search test_frontend -j $(JOBS)
	TSAN_OPTIONS="suppressions=$(CURDIR)/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1" \
	./$(TSAN_DIR)/tests/test_search --gtest_filter='Threads.*'
	TSAN_OPTIONS="suppressions=$(CURDIR)/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1" \
	./$(TSAN_DIR)/tests/test_frontend --gtest_filter='Threads.*'

# Each fuzz target runs FUZZ_SECONDS on a scratch copy of its seed corpus (fuzz/corpus stays as
# it is). A crash, leak, hang or failed check leaves its input and log in build/fuzz/runs/<name>/
# and fails the run once every target has had its turn.
fuzz: $(FUZZ_DIR)/CMakeCache.txt
	$(CMAKE) --build $(FUZZ_DIR) --target fuzzers -j $(JOBS)
	@status=0; \
	for spec in fen:256 move:80 uci:2048 xboard:2048 net:8192 pgn:4096 book:4096 bitbase:4096 mat:4096; do \
		name=$${spec%%:*}; length=$${spec#*:}; work=$(FUZZ_DIR)/runs/$$name; \
		rm -rf $$work && mkdir -p $$work/corpus && cp fuzz/corpus/$$name/* $$work/corpus/; \
		echo "fuzzing $$name for $(FUZZ_SECONDS) s"; \
		./$(FUZZ_DIR)/$${name}_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=$$length \
			-timeout=120 -print_final_stats=1 -artifact_prefix=$$work/ $$work/corpus \
			> $$work/log.txt 2>&1 || { status=1; tail -n 40 $$work/log.txt; \
			echo "fuzz target $$name failed; input and log in $$work"; }; \
	done; exit $$status

# Builds the programs in tools/ (one folder each) and runs the perft speed benchmark.
bench: $(RELEASE_DIR)/CMakeCache.txt
	$(CMAKE) --build $(RELEASE_DIR) --target tools -j $(JOBS)
	if [ -x $(RELEASE_DIR)/perftbench ]; then ./$(RELEASE_DIR)/perftbench; fi

# Faster builds for one's own machine: native uses every instruction of the building CPU; pgo
# trains on the bench and rebuilds with the profile. Both optimise at link time and give the
# same node counts as the plain build, which each checks with the bench signature.
native:
	$(CMAKE) -S . -B $(NATIVE_DIR) -DCMAKE_BUILD_TYPE=Release -DZELMARK_TESTS=OFF \
		-DZELMARK_NATIVE=ON -DZELMARK_LTO=ON
	$(CMAKE) --build $(NATIVE_DIR) --target $(SPEED_TARGETS) -j $(JOBS)
	$(CMAKE) -DBENCH=$(NATIVE_DIR)/bench -DSIGNATURE=tools/bench/signature.txt \
		-P tools/bench/check_signature.cmake

pgo:
	$(CMAKE) -S . -B $(PGO_DIR) -DCMAKE_BUILD_TYPE=Release -DZELMARK_TESTS=OFF \
		-DZELMARK_LTO=ON -DZELMARK_PGO=generate $(PGO_OPTIONS)
	find $(PGO_DIR) -name '*.gcda' -delete
	$(CMAKE) --build $(PGO_DIR) --target $(SPEED_TARGETS) -j $(JOBS)
	./$(PGO_DIR)/bench $(PGO_BENCH_DEPTH) > /dev/null
	./$(PGO_DIR)/perftbench $(PGO_PERFT_OFFSET) > /dev/null
	$(CMAKE) -S . -B $(PGO_DIR) -DZELMARK_PGO=use
	$(CMAKE) --build $(PGO_DIR) --target $(SPEED_TARGETS) -j $(JOBS)
	$(CMAKE) -DBENCH=$(PGO_DIR)/bench -DSIGNATURE=tools/bench/signature.txt \
		-P tools/bench/check_signature.cmake

format:
	find $(wildcard src tests tools) \( -name '*.cpp' -o -name '*.h' \) -print0 | \
		xargs -0 -r $(CLANG_FORMAT) -i

clean:
	rm -rf build
