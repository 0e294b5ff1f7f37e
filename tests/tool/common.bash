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
# The tokens of an input without their locations.
tokens() { "$nxxml" tokens "$@" | jq -c 'del(.line, .column, .byte)'; }
# Tokens (on standard input) as a copy of them reads back: a text that
# follows an end tag or a start tag without attributes (or begins the input)
# is written with its leading line feed as a reference, which the reader
# drops as the first line feed after a tag. After a start tag with
# attributes the image's own line feed is the one dropped.
as_copied() {
  jq -s -c '
    reduce .[] as $t ({prev: null, out: []};
      (if $t.type == "text" and ($t.text | startswith("\n"))
          and (.prev == null or .prev.type == "end" or (.prev.type == "start" and (.prev.attributes | length) == 0))
       then $t | .text |= .[1:] else $t end) as $u
      | .out += (if $u.type == "text" and $u.text == "" then [] else [$u] end)
      | .prev = $t)
    | .out[]'
}
