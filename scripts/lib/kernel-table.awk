# The instructions-per-frame table of scripts/bench --callgrind (x86) and
# scripts/cross-arm64 --instructions (arm64). Input, one line a measured kernel:
#   KEY PATH FRAMES INSTRUCTIONS RULE RING CONTOURS
# PATH is vector (the library's fast kernel), plain (its plain loop; for the
# whole intake, destride and cv::cvtColor) or libyuv (the peer); RULE, RING and
# CONTOURS are inclusive counts within an analysis kernel, 0 when unknown.
function k(x) { return x > 0 ? sprintf("%.0f k", x / 1000) : "-" }
function ratio(a, b) { return (a > 0 && b > 0) ? sprintf("%.2fx", a / b) : "-" }
{
  key = $1; path = $2; n = $3
  total[key, path] = $4 / n; rule[key, path] = $5 / n; ring[key, path] = $6 / n
  cont[key, path] = $7 / n
  if (!(key in seen)) { seen[key] = 1; order[++count] = key }
}
END {
  print "| instructions per frame | vector | plain | plain / vector | libyuv | vector / libyuv | block rule | ring copy | contours |"
  print "|---|---:|---:|---:|---:|---:|---:|---:|---:|"
  for (i = 1; i <= count; ++i) {
    key = order[i]; v = total[key, "vector"]; p = total[key, "plain"]; y = total[key, "libyuv"]
    printf "| %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", key, k(v), k(p), ratio(p, v), k(y),
      ratio(v, y), k(rule[key, "vector"]), k(ring[key, "vector"]), k(cont[key, "vector"])
  }
  print ""
  print "Block rule, ring copy and contours are parts of the vector figure (inclusive counts)."
}
