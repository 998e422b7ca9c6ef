# Turns a page of docs/ into a man page.
#
#   awk -v name=qovctl -v section=1 -v version=1.0.0 -v brief="..." -v synopsis="..." \
#       [-v see="..."] [-v without=<heading>] -f man_page.awk docs/qovctl.md
#
# It knows the Markdown that the pages use: headings, paragraphs, lists, tables, code in four blanks or
# fences, `code`, **bold** and links, of which the text stays. What stands under the heading `without` is
# left out. Tables of two columns become lists of terms, wider ones tables for tbl.

BEGIN {
  print "'\\\" t"
  print ".\\\" Generated from the page " name " of docs/."
  print ".nr HY 0"
  printf ".TH %s %s \"\" \"qovpub %s\"\n.ad l\n", toupper(name), section, version
  print ".SH NAME\n" name " \\- " brief
  if (synopsis != "") {
    print ".SH SYNOPSIS"
    lines = split(synopsis, line, / *\+ */)
    for (i = 1; i <= lines; ++i)
      print (i > 1 ? ".br\n" : "") spans(line[i], 0)
  }
  print ".SH DESCRIPTION"
  fresh = 1
}

/^## / { endBlock(); leavingOut = without != "" && substr($0, 4) == without }
leavingOut { next }

/^```/ { endBlock(); fenced = !fenced; if (fenced) beginCode(); else endCode(); next }
fenced { print escape($0, 1); next }

/^# / { next }
/^###? / {
  endBlock()
  deep = /^### /
  sub(/^#+ /, "")
  print (deep ? ".SS " : ".SH ") "\"" spans($0, !deep) "\""
  fresh = 1
  next
}
/^ *$/ { endBlock(); next }
/^    / && kind != "list" {
  if (kind != "code") { endBlock(); kind = "code"; beginCode() }
  print escape(substr($0, 5), 1)
  next
}
/^\|/ { if (kind != "table") { endBlock(); kind = "table" } addRow($0); next }
/^- / { endBlock(); kind = "list"; text = substr($0, 3); next }
{
  if (kind == "") kind = "paragraph"
  sub(/^ +/, "")
  text = text (text == "" ? "" : " ") $0
}

END {
  endBlock()
  if (see != "") print ".SH \"SEE ALSO\"\n" spans(see, 0)
}

function escape(s, code) {
  gsub(/\\/, "\\e", s)
  gsub(/@/, "\\(at", s)
  if (code) gsub(/-/, "\\-", s)
  if (s ~ /^[.']/) s = "\\&" s
  return s
}

function bold(s,   parts, n, i, out) {
  n = split(s, parts, /\*\*/)
  for (i = 1; i <= n; ++i)
    out = out (i % 2 ? parts[i] : "\\fB" parts[i] "\\fR")
  return out
}

# Every other part between backquotes is code.
function spans(s, upper,   parts, n, i, out, part) {
  n = split(s, parts, "`")
  for (i = 1; i <= n; ++i) {
    part = parts[i]
    if (i % 2 == 0) {
      out = out "\\fB" escape(part, 1) "\\fR"
      continue
    }
    while (match(part, /\[[^]]*\]\([^)]*\)/)) {
      link = substr(part, RSTART + 1, RLENGTH - 2)
      sub(/\].*/, "", link)
      part = substr(part, 1, RSTART - 1) link substr(part, RSTART + RLENGTH)
    }
    part = escape(part, 0)
    out = out bold(upper ? toupper(part) : part)
  }
  return out
}

# A heading has begun one already.
function beginParagraph() {
  if (!fresh) print ".PP"
  fresh = 0
}

function beginCode() { beginParagraph(); print ".RS 4\n.EX" }
function endCode() { print ".EE\n.RE" }

function endBlock() {
  if (kind == "code") endCode()
  else if (kind == "paragraph") { beginParagraph(); print spans(text, 0) }
  else if (kind == "list") print ".IP \\(bu 2\n" spans(text, 0)
  else if (kind == "table") endTable()
  if (kind != "") fresh = 0
  kind = text = ""
}

function addRow(s,   cells, i) {
  if (s ~ /^\|[-| :]+\|$/) return
  gsub(/^\| *| *\|$/, "", s)
  columns = split(s, cells, / *\| */)
  ++rows
  for (i = 1; i <= columns; ++i) {
    cell[rows, i] = cells[i]
    if (rows > 1 && length(cells[i]) > width[i]) width[i] = length(cells[i])
  }
}

function endTable(   r) {
  if (columns > 2) wideTable()
  else for (r = 2; r <= rows; ++r) {
    if (width[1] > 44) print ".IP \\(bu 2\n" spans(cell[r, 1], 0) (cell[r, 2] == "" ? "" : "\n.br\n" spans(cell[r, 2], 0))
    else print ".TP\n" spans(cell[r, 1], 0) "\n" (cell[r, 2] == "" ? "\\&" : spans(cell[r, 2], 0))
  }
  rows = 0
  split("", width)
}

# Columns with long texts share what room there is.
function wideTable(   r, i, head, body) {
  for (i = 1; i <= columns; ++i) {
    head = head "lb "
    body = body (width[i] > 24 ? "lx " : "l ")
  }
  print ".TS\ntab(@);\n" head "\n" body "."
  for (r = 1; r <= rows; ++r)
    for (i = 1; i <= columns; ++i)
      printf "%s%s", (r > 1 && width[i] > 24 ? "T{\n" spans(cell[r, i], 0) "\nT}" : spans(cell[r, i], 0)), (i < columns ? "@" : "\n")
  print ".TE"
}
