# Shared by scripts/test and scripts/test-tsan. Source it; it defines functions only.

# qv_ctest BUILD_DIR [CTEST ARGUMENTS...]: runs the selected tests and fails unless every
# one of them ran and passed. A test that was registered but skipped, or could not be run
# at all (its binary missing, its discovery broken), fails the run like a failed test:
# nothing may drop out of the suite unnoticed.
qv_ctest() {
  local dir=$1
  shift
  local registered results
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
