# Draws the way of one request, of a file that `qovctl agent trace -o` has written, as SVG: what the
# threads did meanwhile that messages came by, the one that asks on top, and arrows from step to
# step. docs/trace.svg was made so:
#
#   awk -v sn=<serial number, decimal> -f docs/trace_picture.awk trace.json >docs/trace.svg
#
# One event is one line, as qovctl writes them.
BEGIN {
  LEFT = 110; WIDTH = 820; ROW = 22; TOP = 34  # pixels
}

/"ph":"M"/ { name[number("tid")] = text("name") }
/"ph":"X"/ {
  ++slices
  thread[slices] = number("tid")
  begin[slices] = number("ts")
  end[slices] = begin[slices] + number("dur")
  label[slices] = text("name")
  if (number("sn") == sn && label[slices] ~ /^ask /) {
    asker = thread[slices]; first = begin[slices]; last = end[slices]
  }
}
/"ph":"[stf]"/ {
  ++points
  flow[points] = number("id"); by[points] = number("tid"); at[points] = number("ts")
}

END {
  if (last == "") { print "no slice waits for request " sn >"/dev/stderr"; exit 1 }
  for (i = 1; i <= points; ++i) if (at[i] >= first && at[i] <= last) comesBy[by[i]] = 1
  bottom = TOP
  place(asker)
  for (i = 1; i <= slices; ++i) if (isSeen(i)) place(thread[i])
  drawFrame()
  for (i = 1; i <= slices; ++i) if (isSeen(i)) drawSlice(i)
  for (i = 2; i <= points; ++i) if (flow[i] == flow[i - 1]) drawArrow(i - 1, i)
  print "</svg>"
}

function isSeen(slice) {
  return thread[slice] in comesBy && end[slice] >= first && begin[slice] <= last
}

# A track with as many rows as slices lie within each other.
function place(tid,    i, open, ends, deepest) {
  if (tid in top) return
  for (i = 1; i <= slices; ++i) {
    if (thread[i] != tid || !isSeen(i)) continue
    while (open > 0 && ends[open] <= begin[i]) --open
    row[i] = open
    ends[++open] = end[i]
    if (open > deepest) deepest = open
  }
  top[tid] = bottom
  bottom += deepest * ROW + 12
}

function x(time,    margin) {
  margin = (last - first) * 0.02
  if (time > last + margin) time = last + margin
  if (time < first - margin) time = first - margin
  return LEFT + (time - first + margin) / (last - first + 2 * margin) * WIDTH
}

function drawFrame(    tid, time, step) {
  print "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " LEFT + WIDTH + 30, bottom "\""
  print " font-family=\"sans-serif\" font-size=\"11\">"
  print "<defs><marker id=\"tip\" viewBox=\"0 0 8 8\" refX=\"7\" refY=\"4\" orient=\"auto\">"
  print "<path d=\"M0 0L8 4L0 8z\" fill=\"#c0392b\"/></marker></defs>"
  print "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>"
  for (step = 1; step * 10 < last - first; step *= 10);
  for (time = 0; first + time <= last; time += step) {
    printf "<path d=\"M%.1f 20V%d\" stroke=\"#ddd\"/>\n", x(first + time), bottom
    printf "<text x=\"%.1f\" y=\"14\" text-anchor=\"middle\">%d us</text>\n", x(first + time), time
  }
  for (tid in top) printf "<text x=\"4\" y=\"%d\">%s</text>\n", top[tid] + 15, name[tid]
}

# Waits, handlers, and the other steps.
function drawSlice(i,    y, wide, colour) {
  colour = label[i] ~ /^ask / ? "#f6e3b4" : label[i] ~ /^[0-9]/ ? "#a9cdec" : "#7f8c8d"
  y = top[thread[i]] + row[i] * ROW
  wide = x(end[i]) - x(begin[i])
  if (wide < 2) wide = 2
  printf "<rect x=\"%.1f\" y=\"%d\" width=\"%.1f\" height=\"%d\" rx=\"2\" fill=\"%s\"/>\n",
    x(begin[i]), y, wide, ROW - 2, colour
  if (wide < length(label[i]) * 6) return
  printf "<text x=\"%.1f\" y=\"%d\">%s</text>\n", x(begin[i]) + 4, y + 14, label[i]
}

function drawArrow(from, to) {
  if (at[from] < first || at[to] > last || by[from] == by[to]) return
  printf "<path d=\"M%.1f %dL%.1f %d\" stroke=\"#c0392b\" marker-end=\"url(#tip)\"/>\n",
    x(at[from]), top[by[from]] + 11, x(at[to]), top[by[to]] + 11
}

# Members of the event.
function number(key) {
  if (!match($0, "\"" key "\":[0-9.]+")) return ""
  return substr($0, RSTART + length(key) + 3, RLENGTH - length(key) - 3) + 0
}
function text(key,    found) {
  if (!match($0, "\"" key "\":\"[^\"]*")) return ""
  found = substr($0, RSTART + length(key) + 4, RLENGTH - length(key) - 4)
  gsub(/&/, "\\&amp;", found)
  gsub(/</, "\\&lt;", found)
  return found
}
