# A man page of a configuration that stands as comments, "# prose", with "#key = value" behind:
#   awk -v name=panel2mqtt.toml -v title=... -v source=... -v date=... -f configuration-page.awk FILE

function flush(    i) {
  if (keys) {
    for (i = 1; i <= keys; ++i) printf "%s\n.B %s\n", i == 1 ? ".TP" : ".TQ", key[i]
    print prose
  } else if (prose != "") {
    print (wasSaid ? ".PP\n" : "") prose
    wasSaid = 1
  }
  keys = 0
  prose = ""
}

BEGIN {
  printf ".TH %s \"5\" \"%s\" \"%s\" \"File Formats\"\n", toupper(name), date, source
  printf ".SH NAME\n%s \\- %s\n.SH DESCRIPTION\n", name, title
}

{
  gsub(/\\/, "\\e")
  gsub(/-/, "\\-")
}
/^$/ { flush(); next }
/^\[/ { flush(); print ".SS " $0; next }
/^# / {
  gsub(/`[^`]*`/, "\\fB&\\fP")
  gsub(/`/, "")
  prose = prose (prose == "" ? "" : "\n") substr($0, 3)
  next
}
/^#/ {
  gsub(/"/, "\\(dq")
  key[++keys] = substr($0, 2)
}

END {
  flush()
  print ".SH SEE ALSO"
  print see
}
