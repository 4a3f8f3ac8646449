# Makes of the lines of peers_bench a table in Markdown, and a picture in the file `svg`: a row of bars for each
# work, the best of it the longest.
BEGIN { FS = "\t" }
$1 == "yardsticks" { yardsticks = yardsticks sprintf("%s %s %s; ", $2, $3, $4); next }
{
  if (!($1 in unit)) works[++workCount] = $1
  if (!($2 in known)) { known[$2] = 1; names[++nameCount] = $2 }
  unit[$1] = $4
  value[$1, $2] = $3
  # Of times the shortest is the best.
  score = $4 == "µs" || $4 == "ms" ? 1 / $3 : $3
  scores[$1, $2] = score
  if (score > best[$1]) best[$1] = score
}
END {
  printf "| |"; for (n = 1; n <= nameCount; ++n) printf " %s |", names[n]
  printf "\n|---|"; for (n = 1; n <= nameCount; ++n) printf "---|"
  print ""
  for (w = 1; w <= workCount; ++w) {
    printf "| %s, %s |", works[w], unit[works[w]]
    for (n = 1; n <= nameCount; ++n) printf " %s |", value[works[w], names[n]]
    print ""
  }
  sub(/; $/, "", yardsticks)
  printf "\nThis machine: %s.\n", yardsticks
  row = 16; block = row * nameCount + 30
  printf "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"760\" height=\"%d\" font-family=\"sans-serif\" font-size=\"12\">\n", block * workCount + 10 > svg
  print "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>" > svg
  for (w = 1; w <= workCount; ++w) {
    top = block * (w - 1) + 20
    printf "<text x=\"10\" y=\"%d\" font-weight=\"bold\">%s</text>\n", top, works[w] > svg
    for (n = 1; n <= nameCount; ++n) {
      y = top + row * n
      printf "<text x=\"150\" y=\"%d\" text-anchor=\"end\">%s</text>", y, names[n] > svg
      printf "<rect x=\"160\" y=\"%d\" width=\"%.1f\" height=\"11\" fill=\"%s\"/>", y - 10, 480 * scores[works[w], names[n]] / best[works[w]] + 1, names[n] ~ /kestrel/ ? "#2a6fb0" : "#b0b0b0" > svg
      printf "<text x=\"%.1f\" y=\"%d\">%s %s</text>\n", 166 + 480 * scores[works[w], names[n]] / best[works[w]], y, value[works[w], names[n]], unit[works[w]] > svg
    }
  }
  print "</svg>" > svg
}
