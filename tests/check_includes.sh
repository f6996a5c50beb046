#!/usr/bin/env bash
# Include arrows run one way. usage: check_includes.sh SOURCE_DIRECTORY
#
#  - a module includes modules of lower layers only; except and archive are one layer and see each other
#  - the plain structures of math/plain.h, which need nothing, are open to all: siblings and classes exchange them
#  - the values and shapes of std/shapes know no images: only its raster unit includes pelbuf
#  - run-length images know no shapes: only the regions of std/rlebuf, which give their borders, include shapes
#  - public headers include public headers only, and nothing inside the library includes an umbrella
#  - every umbrella includes all headers of its directory
set -euo pipefail
cd "$1"
shopt -s nullglob

arrows() {
  find include/vnxstd/*/ std*/ zrt*/ -name '*.h' -o -name '*.cpp' | sort | xargs awk '
    BEGIN {
      split("zrtsys zrtnlxf:except archive:sync timer math:comm:pelspan:pelbuf:shapes:cfit:rlebuf dib vdb", rows, ":")
      for (i = 1; i in rows; ++i) {
        n = split(rows[i], names, " ")
        for (k = 1; k <= n; ++k) layer[names[k]] = i
      }
    }
    function module(path) {  # of a file or of an include
      if (path ~ /^zrt(sys|nlxf)\//) return substr(path, 1, index(path, "/") - 1)
      if (!sub(/^(include\/)?vnxstd\//, "", path) && !sub(/^std\//, "", path)) return ""
      return substr(path, 1, index(path, "/") - 1)
    }
    function fail(why) { print FILENAME ":" FNR ": " why; ++failures }
    FNR == 1 {
      from = module(FILENAME)
      if (!(from in layer)) fail("no layer is known for the module " from)
    }
    /^[ \t]*#[ \t]*include/ {
      if (!match($0, /[<"][^>"]*[>"]/)) next
      included = substr($0, RSTART + 1, RLENGTH - 2)
      if (included !~ /^(vnxstd|std|zrtsys|zrtnlxf)\// || included ~ /^vnxstd\/(export|math\/plain)\.h$/) next
      ++looked
      to = module(included)
      if (FILENAME ~ /^include\// && included !~ /^vnxstd\//) fail("not a public header: " included)
      if (to == "") { fail("an umbrella, inside the library: " included); next }
      if (!(to in layer)) { fail("no such module: " included); next }
      if (to == from) next
      together = from to ~ /^(exceptarchive|archiveexcept)$/
      if (layer[to] > layer[from]) fail(from " lies below " to ": " included)
      else if (layer[to] == layer[from] && !together) fail(from " and " to " stand side by side: " included)
      else if (from == "rlebuf" && to == "shapes" && FILENAME !~ /\/regions[^\/]*$/) fail("only regions see shapes: " included)
      else if (from == "shapes" && to == "pelbuf" && FILENAME !~ /\/raster[^\/]*$/) fail("only the raster unit sees images: " included)
    }
    END {
      print looked + 0 " includes within the library, " failures + 0 " against the arrows"
      exit failures || !looked
    }'
}

umbrellas() {
  local directory umbrella header missing=0
  for directory in include/vnxstd/*/; do
    umbrella=${directory%/}.h
    for header in "$directory"*.h; do
      grep -qsF "#include \"${header#include/}\"" "$umbrella" && continue
      echo "$umbrella does not include ${header#include/}"
      missing=1
    done
  done
  return $missing
}

status=0
arrows || status=1
umbrellas || status=1
exit $status
