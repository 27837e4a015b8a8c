# The commands of this project. Each installs what it lacks, says so, and may be repeated; the work is in tools/.

.DEFAULT_GOAL := help
.PHONY: help demo test check fuzz bench compare wheel docs format clean

help: ## this list
	@awk -F ':.*## ' '/^[a-z]+:.*## / { printf "make %-8s %s\n", $$1, $$2 }' $(MAKEFILE_LIST)

demo: ## build everything and run a first circuit
	@tools/demo

test: ## build everything and run every test
	@tools/test

check: ## format, warnings, static analysis, sanitizers, types, random inputs (always the same), documents
	@tools/check

fuzz: ## other random inputs each time, for as long as you like: make fuzz SECONDS=3600
	@tools/fuzz $(SECONDS)

bench: ## build and run the benchmarks, on a quiet machine
	@tools/bench

compare: ## the same circuits with other simulators, into docs/performance.md; on a quiet machine
	@tools/compare

wheel: ## the Python wheel for Linux with this C library or a newer one, in dist/
	@tools/wheel

docs: ## the documentation as web pages, in build/docs/html
	@tools/docs

format: ## rewrite the C++ sources as .clang-format says
	@tools/format

clean: ## remove what was built, but not .venv
	rm -rf build dist
