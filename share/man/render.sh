#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# render.sh PAGE.scd: prints the man page that scdoc makes of a source, without what mandoc -Tlint
# objects to: paragraph macros that do nothing, a title in small letters, long lines of text.
set -eu
page=$(mktemp)
trap 'rm -f "$page"' EXIT
scdoc <"$1" >"$page"
awk '
  function put(line) {
    while (!literal && line !~ /^[.]/ && length(line) > 80 && match(substr(line, 1, 80), /.* /)) {
      cut = RLENGTH
      while (cut > 1 && substr(line, cut + 1) ~ /^[.\047]/) cut--
      print substr(line, 1, cut - 1)
      line = substr(line, cut + 1)
    }
    print line
  }
  $1 == ".TH" { $2 = toupper($2) }
  /^[.]nf/ { literal = 1 }
  /^[.]fi/ { literal = 0 }
  $0 == ".P" { paragraph = 1; next }
  paragraph && !/^[.](SH|SS|RE|RS)/ && !after_heading { print ".P" }
  { put($0); paragraph = paragraph && /^[.]RE/; after_heading = /^[.](SH|SS|TH)/ }
' "$page"
