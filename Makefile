# The two commands: `make run` and `make test`. Both install what is missing first.
PRESET ?= release
JOBS ?= $(shell nproc)
# ccache (when installed) finds earlier compiles of the same files from any clone of the tree.
export CCACHE_BASEDIR ?= $(CURDIR)
export CCACHE_NOHASHDIR ?= 1

.PHONY: run test bench bootstrap build build-ci format

bootstrap:
	@scripts/bootstrap

build: bootstrap
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET) -j $(JOBS)

run: build
	@build/$(PRESET)/cli/fretquill $(ARGS)

test: bootstrap
	@cmake --preset ci >/dev/null
	@cmake --build --preset ci -j $(JOBS)
	@ctest --preset ci -j $(JOBS)

bench: build
	@for b in build/$(PRESET)/bench/*Bench; do echo "== $$b"; $$b --benchmark_min_time=0.2; done

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i
