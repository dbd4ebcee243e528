# What help2man made of the lines that arrange-help.awk has marked, to be copied as they
# are; and of the usage, where a command's name is no placeholder.

/^\\f\(CW> / {
  if (!isVerbatim) print ".nf"
  isVerbatim = 1
  sub(/> /, "")
  gsub(/-/, "\\-")
  gsub(/'/, "\\(aq")
  gsub(/\001/, "\\ ")
  print
  next
}
isVerbatim && /^\.br$/ { next }
isVerbatim { print ".fi"; isVerbatim = 0 }

command != "" && index($0, "\\fI\\," command " ") == 1 { sub(/^\\fI/, "\\fB") }
/^\.TH / { sub(/"January 1970"/, "\"" date "\"") }
{ print }
END { if (isVerbatim) print ".fi" }
