# Writes each fenced block of a page into a file of its own in the folder OUT, named by page, line and
# language: endpoint.md.98.json. Blocks that say "not run: <reason>" behind the language are listed in
# OUT/not_run instead; "console of an agent" makes the language "agent". A block without a fence, or without a language, is an error: nobody would try it.
#
#   awk -v OUT=<folder> -f blocks.awk <page>
FNR == 1 { page = FILENAME; sub(/.*\//, "", page); before = "" }
/^```/ {
  if (file != "") { close(file); file = ""; before = ""; next }
  info = substr($0, 4)
  if (info == "") complain("has no language")
  language = info
  sub(/ .*/, "", language)
  if (info == "console of an agent") language = "agent"
  file = OUT "/" page "." FNR "." language
  if (info ~ / not run: ./) { print page ":" FNR ": " info >> (OUT "/not_run"); file = "/dev/null" }
  else printf "" > file
  next
}
file != "" { print > file; next }
/^    / && before == "" { complain("is indented and has no fence") }
{ before = $0 }
END { if (failed) exit 1 }

function complain(what) {
  print "the block at " FILENAME ":" FNR " " what
  failed = 1
}
