# Doxygen input filter for the public headers. The headers document each
# declaration with a plain // comment directly above it; this turns such a
# block into a /// block so that Doxygen takes it as the declaration's
# documentation. Comments followed by a blank line, a preprocessor line, an
# access label or a closing brace (banners, notes) stay ordinary comments.
# Lines are kept one for one, so Doxygen's line numbers stay right.

function flush(documents,    i, line) {
  for (i = 1; i <= n; i++) {
    line = block[i]
    if (documents && line !~ /^[ \t]*\/\/ ----/) {
      sub(/\/\//, "///", line)
      # A global name such as ::time is prose here, not a link request.
      gsub(/ ::/, " \\::", line)
      gsub(/\(::/, "(\\::", line)
    }
    print line
  }
  n = 0
}

/^[ \t]*\/\/[^\/!]/ || /^[ \t]*\/\/$/ {
  block[++n] = $0
  next
}

{
  documents = !($0 ~ /^[ \t]*$/ || $0 ~ /^[ \t]*#/ || $0 ~ /^[ \t]*(public|private|protected)[ \t]*:/ ||
                $0 ~ /^[ \t]*}/)
  flush(documents)
  print
}

END { flush(0) }
