#!/usr/bin/env bash
# Builds the libFuzzer targets in build/fuzz (clang, AddressSanitizer, UndefinedBehaviorSanitizer) and runs
# each for a bounded time over a working copy of its seed corpus. A crash, leak, timeout or memory blow-up
# fails the run; the input that caused it is kept in build/fuzz/artifacts/<target>/.
#
#   scripts/run-fuzzers.sh                   every target, 30 s each
#   scripts/run-fuzzers.sh 300 fuzz_graph    one target, five minutes
#   scripts/run-fuzzers.sh 0                 nothing (how ./test.sh is told to skip them)
#
# Reproduce a finding with: build/fuzz/fuzz/<target> <input>
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build/fuzz"
all_targets=(fuzz_login fuzz_connections fuzz_graph fuzz_snapshot fuzz_appcast)

seconds=${1:-30}
shift || true
targets=("$@")
((${#targets[@]})) || targets=("${all_targets[@]}")

if [[ ! $seconds =~ ^[0-9]+$ ]]; then
  echo "run-fuzzers.sh: the time per target must be whole seconds, not \"$seconds\"" >&2
  exit 2
fi
for target in "${targets[@]}"; do
  if [[ ! -d $root/fuzz/corpus/$target ]]; then
    echo "run-fuzzers.sh: no fuzz target \"$target\" (there are: ${all_targets[*]})" >&2
    exit 2
  fi
done
if ((seconds == 0)); then
  echo "run-fuzzers.sh: fuzzing skipped (0 seconds per target)"
  exit 0
fi

# libFuzzer comes with clang only; without it there is nothing to run, which is not a failure.
compiler=$(command -v clang++-14 || true)
runtime=$(compgen -G "/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" || true)
if [[ -z $compiler || -z $runtime ]]; then
  echo "run-fuzzers.sh: SKIPPED: fuzzing needs clang++-14 and libclang-rt-14-dev (scripts/deps.sh installs them)"
  exit 0
fi

# Configure once, as test.sh does; a build configured otherwise (another compiler) starts afresh. -O1 keeps
# the fuzzers quick while Debug keeps Qt's and our assertions in.
options=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-g -O1" "-DCMAKE_CXX_COMPILER=$compiler" -DGLINTA_FUZZ=ON)
"$root/scripts/configure-and-build.sh" "$build" "${targets[@]}" -- "${options[@]}"

export ASAN_OPTIONS="detect_stack_use_after_return=1:strict_init_order=1:check_initialization_order=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"

failed=()
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  artifacts="$build/artifacts/$target"
  log="$build/logs/$target.log"
  mkdir -p "$corpus" "$artifacts" "$(dirname "$log")"
  # The working corpus grows here across runs; the repository's seeds are only ever read.
  for seed in "$root/fuzz/corpus/$target/"*; do
    [[ -e $corpus/${seed##*/} ]] || cp "$seed" "$corpus/"
  done
  dictionary="$root/fuzz/json.dict"
  [[ $target == fuzz_appcast ]] && dictionary="$root/fuzz/xml.dict"

  status=0
  "$build/fuzz/$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
    -dict="$dictionary" -artifact_prefix="$artifacts/" "$corpus" >"$log" 2>&1 || status=$?

  # libFuzzer's exit on SIGINT or SIGTERM: the run was stopped, not failed, and the rest is not wanted.
  if ((status == 72)); then
    echo "run-fuzzers.sh: $target: interrupted; stopping" >&2
    exit 130
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  if ((status == 0)); then
    echo "run-fuzzers.sh: $target: passed, ${runs:-?} inputs in ${seconds} s"
    continue
  fi
  failed+=("$target")
  input=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -1)
  echo "run-fuzzers.sh: $target: FAILED (exit status $status); the report (whole log: $log):"
  # Progress lines and libFuzzer's own stack frames say nothing about the fault.
  { grep -Ev '^#[0-9]+\s|NEW_FUNC|^INFO:| in fuzzer::|libc\.so|libc_start|_start |rudimentary signal|Combine libFuzzer' \
    "$log" || true; } | tail -40 | sed 's/^/  /'
  echo "run-fuzzers.sh: $target: failing input: ${input:-none written, see the log}"
  echo "run-fuzzers.sh: $target: reproduce with: $build/fuzz/$target ${input:-<input>}"
done

if ((${#failed[@]})); then
  echo "run-fuzzers.sh: failed: ${failed[*]}" >&2
  exit 1
fi
