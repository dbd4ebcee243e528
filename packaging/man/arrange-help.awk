# What --help prints, arranged for help2man: the prose before the options, exit codes and
# examples in sections of their own, and what has to keep its lines marked with ">".

function say(part, line) { text[part] = text[part] line "\n" }

function capitalised(line) { return toupper(substr(line, 1, 1)) substr(line, 2) }

# An indented block: a list of words, each with its explanation two blanks away, or verbatim.
function sayIndented(part, line,    rest) {
  if (!isInside) isVerbatim = line !~ /^ +[^ ]+( [^ ]+)*  +[^ ]/
  isInside = 1
  if (isVerbatim) {
    rest = substr(line, 3)
    while (match(rest, /^\001* /)) sub(/ /, "\001", rest)
    line = "  > " rest
  }
  say(part, line)
}

{
  # `panelctl flash --help` is panelctl-flash(1).
  while (match($0, /`[a-z]+( [a-z]+)? --help`/)) {
    page = substr($0, RSTART + 1, RLENGTH - 9)
    sub(/ /, "-", page)
    $0 = substr($0, 1, RSTART - 1) page "(1)" substr($0, RSTART + RLENGTH)
  }
  sub(/^  -h,--help/, "  -h, --help")
}

/^Usage: / { part = "usage"; say(part, $0); part = "prose"; next }
/^(Positionals|Options|Subcommands):$/ { part = $1; next }
/^$/ { say(part, ""); if (part != "description") part = "prose"; isInside = 0; next }

part == "" { part = "description"; sub(/[^.]$/, "&.") }
part ~ /:$/ { say(part, $0); next }
/^ / { sayIndented(part, $0); next }

/^Example: / { part = "examples"; say(part, ""); sub(/^Example: /, ""); $0 = capitalised($0) }
/Exit codes?:/ {
  split($0, side, /Exit codes?: */)
  if (side[1] != "") say(part, side[1])
  part = "exit"
  $0 = capitalised(side[2])
}
/^Exit code / { part = "exit"; sub(/^Exit code /, "") }
$0 != "" { say(part, $0); isInside = 0 }

END {
  printf "%s\n%s\n%s", text["description"], text["usage"], text["prose"]
  if ("Options:" in text) printf "\nOptions:\n%s", text["Options:"]
  if ("Positionals:" in text) printf "\n*Arguments*\n\n%s", text["Positionals:"]
  if ("Subcommands:" in text) printf "\n*Commands*\n\n%s", text["Subcommands:"]
  if ("exit" in text) printf "\n*Exit status*\n\n%s", text["exit"]
  if ("examples" in text) printf "\nExamples:\n%s", text["examples"]
}
