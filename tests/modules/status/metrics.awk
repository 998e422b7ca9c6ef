# Whether a text of metrics has the form that it is to have: awk -v form=openmetrics|prometheus -f ...
# Stricter than the formats are: each family has HELP, TYPE and a UNIT where its name ends in one, in
# that order, and each sample labels. Prints the first line that is wrong, and why; exit status 1 then.
function wrong(why) {
  print "line " NR ": " why ": " $0
  failed = 1
  exit 1
}

# The end of a name that its type demands.
function ending(of) {
  return of == "counter" ? "_total" : of == "info" ? "_info" : ""
}

# What is left of `text` behind `prefix`.
function behind(text, prefix) {
  return substr(text, length(prefix) + 1)
}

function ends_in(text, end) {
  return length(text) > length(end) && substr(text, length(text) - length(end) + 1) == end
}

ended { wrong("something behind the end") }

$0 == "# EOF" {
  ended = 1
  next
}

/^# HELP [a-z][a-z0-9_]* [A-Z][^"\\]*\.$/ {
  if ($3 in families) wrong("a family that was there")
  family = $3
  families[family] = 1
  type = unit = ""
  next
}

/^# TYPE [a-z][a-z0-9_]* (gauge|counter|histogram|info)$/ {
  if ($3 != family || type != "") wrong("a type out of place")
  type = $4
  base = family
  if (form == "prometheus") {
    if (type == "info") wrong("a type of the other form")
    if (type == "counter") {
      if (!ends_in(family, "_total")) wrong("a counter of that name")
      base = substr(family, 1, length(family) - length("_total"))
    }
  } else if (family ~ /_(total|info|bucket|count|sum|created)$/) {
    wrong("an end that samples have")
  }
  next
}

/^# UNIT [a-z][a-z0-9_]* [a-z]+$/ {
  if ($3 != family || type == "" || unit != "") wrong("a unit out of place")
  unit = $4
  if (!ends_in(base, "_" unit)) wrong("a family without its unit")
  next
}

/^#/ || !/^[a-z][a-z0-9_]*\{.*\} [0-9]+(\.[0-9]+)?$/ { wrong("neither a sample nor what describes one") }

{
  name = substr($0, 1, index($0, "{") - 1)
  if (type == "") wrong("a sample of no type")
  if (base ~ /_(seconds|bytes)$/ && unit == "") wrong("a sample without unit")
  if (type == "histogram") {
    part = behind(name, family)
    if (family part != name || part !~ /^_(bucket|count|sum)$/) wrong("a sample of another family")
  } else if (name != (form == "prometheus" ? family : family ending(type))) {
    wrong("a sample of another family")
  }
  rest = behind($0, name "{")
  labels = ""
  le = ""
  split("", known)
  while (match(rest, /^[a-z_]+="([^"\\]|\\\\|\\"|\\n)*"[,}]/)) {
    label = substr(rest, 1, RLENGTH - 1)
    last = substr(rest, RLENGTH, 1)
    rest = substr(rest, RLENGTH + 1)
    key = substr(label, 1, index(label, "=") - 1)
    if (key in known) wrong("a label twice")
    known[key] = 1
    if (key == "le") le = substr(label, 5, length(label) - 5)
    else labels = labels label ","
    if (last == "}") break
  }
  if (last != "}" || rest !~ /^ [0-9.]+$/) wrong("labels")
  if (!("process" in known)) wrong("no process")
  value = behind(rest, " ") + 0
  sample = name "{" labels "}" le
  if (sample in samples) wrong("a sample that was there")
  samples[sample] = 1
  if (type == "info" && value != 1) wrong("an info that is not 1")
}

type == "histogram" && part == "_bucket" {
  if (le == "" || closed[labels, family]) wrong("a bucket out of place")
  if (le != "+Inf" && le + 0 <= border[labels, family]) wrong("borders that fall")
  if (value < count[labels, family]) wrong("counts that fall")
  border[labels, family] = le + 0
  count[labels, family] = value
  closed[labels, family] = le == "+Inf"
}

type == "histogram" && part == "_count" {
  if (!closed[labels, family] || value != count[labels, family]) wrong("another count than the last bucket's")
}

END {
  if (!failed && !ended) {
    print "no end"
    exit 1
  }
}
