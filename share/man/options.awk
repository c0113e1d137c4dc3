# A program's help text as the section OPTIONS of its manual page; or those of subcommands, one after
# the other, each behind a line "subcommand NAME".
function escaped(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  return text
}
function say(text) { print text ~ /^[.']/ ? "\\&" text : text }
BEGIN { print ".SH OPTIONS" }
/^subcommand / { subcommand = $2; inside = 0; next }
/^Options:/ { inside = 1; heading = subcommand == "" ? "" : ".SS " escaped(subcommand); next }
!inside { next }
/^ *-h,--help/ { next }
/^$/ { inside = 0; next }
/^  -/ {
  line = substr($0, 3)
  gap = match(line, /  +/)
  names = gap ? substr(line, 1, gap - 1) : line
  text = substr(line, gap + RLENGTH)
  gsub(/{[^}]*}/, "", names)  # the value that a flag which negates gives
  condition = ""
  if (match(names, / (Needs|Excludes):.*/)) {
    condition = substr(names, RSTART + 1)
    names = substr(names, 1, RSTART - 1)
  }
  sub(/:(POSITIVE|UINT in \[.*\])$/, "", names)  # what the parser checks
  gsub(/,/, ", ", names)
  if (heading != "") print heading
  heading = ""
  print ".TP"
  ++count
  say("\\fB" escaped(names) "\\fR")
  if (condition != "") say(escaped(condition "."))
  if (gap) say(escaped(text))
  next
}
{ sub(/^ +/, ""); say(escaped($0)) }
END { if (count == 0) exit 1 }
