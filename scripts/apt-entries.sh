#!/usr/bin/env bash
# Prints the machine's Debian binary package sources as one-line entries, one per URI and
# suite ("deb [signed-by=KEYRING] URI SUITE COMPONENTS"), from both the one-line lists and the
# deb822 .sources files. Sourced by the scripts that need apt with sources of their own.

apt_binary_entries() {
  grep -hE '^\s*deb\s' /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null || true
  local f
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    awk '
      function flush() {
        if (types ~ /(^| )deb( |$)/ && uris != "" && suites != "") {
          n = split(uris, u, " "); m = split(suites, s, " ")
          for (i = 1; i <= n; i++) for (j = 1; j <= m; j++) {
            line = "deb"
            if (signed != "") line = line " [signed-by=" signed "]"
            print line " " u[i] " " s[j] " " comps
          }
        }
        types = uris = suites = comps = signed = ""
      }
      /^[[:space:]]*$/ { flush(); next }
      /^[[:space:]]*#/ { next }
      /^Types:/      { sub(/^Types:[[:space:]]*/, "");      types = $0 }
      /^URIs:/       { sub(/^URIs:[[:space:]]*/, "");       uris = $0 }
      /^Suites:/     { sub(/^Suites:[[:space:]]*/, "");     suites = $0 }
      /^Components:/ { sub(/^Components:[[:space:]]*/, ""); comps = $0 }
      /^Signed-By:/  { sub(/^Signed-By:[[:space:]]*/, "");  signed = $0 }
      END { flush() }
    ' "$f"
  done
}
