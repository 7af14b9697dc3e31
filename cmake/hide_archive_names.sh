#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# hide_archive_names.sh ARCHIVE: an archive has no list of exports, and a name that is shared between two of its objects is
# visible to the program that it is linked into. Puts the prefix tesh_hidden_ in front of all names that are not exported
# and have no prefix of the library's own, so that a program may use them for itself.
set -euo pipefail
archive=${1:?usage: hide_archive_names.sh ARCHIVE}
names=$(mktemp)
trap 'rm -f "$names"' EXIT
readelf -sW "$archive" | awk '$5 != "LOCAL" && $6 == "HIDDEN" && $7 != "UND" && $8 !~ /^tesh_/ {print $8, "tesh_hidden_" $8}' |
    LC_ALL=C sort -u >"$names"
objcopy --redefine-syms="$names" "$archive"
