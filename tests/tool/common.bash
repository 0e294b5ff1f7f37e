# Shared by the tool tests: the arguments, a scratch folder, and expect.
# Sourced; each test ends with `exit $fail`.
set -u
nxxml=$1
samples=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
expect() {  # expect NAME WANT GOT
  if [ "$2" != "$3" ]; then
    echo "FAIL $1"; echo "  want: $2"; echo "  got:  $3"; fail=1
  fi
}
