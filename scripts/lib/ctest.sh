# Shared by scripts/test and scripts/test-tsan. Source it; it defines functions only.

# qv_ctest BUILD_DIR [CTEST ARGUMENTS...]: runs the selected tests and fails unless every
# one of them ran and passed. A test that was registered but skipped, or could not be run
# at all (its binary missing, its discovery broken), fails the run like a failed test:
# nothing may drop out of the suite unnoticed.
qv_ctest() {
  local dir=$1
  shift
  local registered results
  qv_ctest_counts "$dir" "$@"
  registered=$(ctest --test-dir "$dir" -N "$@" | sed -n 's/^Total Tests: //p')
  results=$(cd "$dir" && pwd)/ctest-results.xml
  rm -f "$results"
  ctest --test-dir "$dir" --output-on-failure -j"$(nproc)" --output-junit "$results" "$@"
  python3 - "$results" "${registered:-0}" <<'PY'
import sys
import xml.etree.ElementTree as tree

suite = tree.parse(sys.argv[1]).getroot()
registered = int(sys.argv[2])
cases = suite.findall("testcase")
not_run = [case.get("name") for case in cases
           if case.get("status") != "run" or case.find("skipped") is not None]
passed = len(cases) - len(not_run)
print(f"tests: {registered} registered, {len(cases)} reported, {passed} ran and passed")
for name in not_run:
    print(f"  did not run: {name}")
if not_run or len(cases) != registered or registered == 0:
    sys.exit("tests: fewer tests ran than are registered")
PY
}

# qv_ctest_counts BUILD_DIR [-L REGEX]: every test label (one per test program; the tests
# without a program of their own count as "unlabelled") registers at least as many tests
# as tests/expected-counts says, so that a suite that stopped being built or discovered
# (a missing library, a broken discovery) fails the run instead of shrinking it; and every
# label is listed there. With -L, only the labels the expression selects.
qv_ctest_counts() {
  local dir=$1 selection=.
  [ "${2:-}" = -L ] && selection=$3
  local expected=tests/expected-counts failed=0 label minimum count
  count_of() {
    if [ "$1" = unlabelled ]; then
      ctest --test-dir "$dir" -N -LE . | sed -n 's/^Total Tests: //p'
    else
      ctest --test-dir "$dir" -N -L "^$1\$" | sed -n 's/^Total Tests: //p'
    fi
  }
  while read -r label minimum; do
    case "$label" in '' | '#'*) continue ;; esac
    [ "$label" = unlabelled ] && [ "$selection" != . ] && continue
    [ "$label" = unlabelled ] || grep -qE "$selection" <<<"$label" || continue
    count=$(count_of "$label")
    if [ "${count:-0}" -lt "$minimum" ]; then
      echo "tests: $label registers ${count:-0} tests, at least $minimum expected ($expected)"
      failed=1
    fi
  done <"$expected"
  while read -r label; do
    grep -qE "$selection" <<<"$label" || continue
    if ! grep -qE "^$label[[:space:]]" "$expected"; then
      echo "tests: label $label is not in $expected: add it with its count"
      failed=1
    fi
  done < <(ctest --test-dir "$dir" --print-labels | sed -n 's/^  //p')
  return "$failed"
}
