# The layout of the library's own classes, from an ABI corpus written by abidw:
# for each class (or union) declared outside the namespaces of the standard
# library, OpenCV and Boost, its size and the offset of each non-static data
# member, in bytes, one per line:
#   CLASS<TAB>size<TAB>BYTES
#   CLASS<TAB>MEMBER<TAB>OFFSET
# Classes come in the order of their first appearance; a class described by
# several translation units is printed once. Used by scripts/abi.

function unescape(s) {
  gsub(/&lt;/, "<", s); gsub(/&gt;/, ">", s); gsub(/&apos;/, "'", s)
  gsub(/&quot;/, "\"", s); gsub(/&amp;/, "\\&", s)
  return s
}
function attribute(line, key,    m) {
  if (match(line, key "='[^']*'") == 0) return ""
  return unescape(substr(line, RSTART + length(key) + 2, RLENGTH - length(key) - 3))
}
function bytes(bits) { return bits % 8 == 0 ? bits / 8 : (bits / 8) " (bit " bits ")" }
function qualified(name,    i, q) {
  q = ""
  for (i = 1; i <= depth; i++) if (scope[i] != "") q = q scope[i] "::"
  return q name
}
# Not the C library's types either (pthread_mutex_t, timespec, ldiv_t ...).
function ours(name) {
  return name !~ /^(std|__gnu_cxx|__cxxabiv1|cv|boost|Eigen)::/ && name !~ /^_/ &&
    name !~ /^(pthread_[a-z_]+|timespec|timeval|tm|l?l?div_t)$/
}

/<namespace-decl / && !/\/>[[:space:]]*$/ { scope[++depth] = attribute($0, "name"); kind[depth] = "ns"; next }
/<\/namespace-decl>/ { depth--; next }
/<(class|union)-decl / {
  if ($0 ~ /\/>[[:space:]]*$/) next  # a declaration only
  name = qualified(attribute($0, "name"))
  scope[++depth] = attribute($0, "name"); kind[depth] = "class"; owner[depth] = name
  # A class already printed is skipped, members and all.
  record[depth] = ours(name) && !(name in done)
  if (record[depth]) {
    done[name] = 1
    print name "\tsize\t" bytes(attribute($0, "size-in-bits"))
  }
  next
}
/<\/(class|union)-decl>/ { depth--; next }
/<data-member / {
  pending = (depth > 0 && kind[depth] == "class" && record[depth]) ? attribute($0, "layout-offset-in-bits") : ""
  next
}
/<var-decl / && pending != "" {
  print owner[depth] "\t" attribute($0, "name") "\t" bytes(pending)
  pending = ""
}
