#!/usr/bin/env bash
# Checks the one direction of dependency between the source folders (see ARCHITECTURE.md):
# no header of a higher layer is included from a lower one, a backend interface names no
# backend, and no X11 call is made outside src/platform. Prints each offence; exits 1 if any.
set -u
cd "$(dirname "$0")/../src" || exit 2

layer() { # the layer of a path below src/
    case "$1" in
    base/*) echo 0 ;;
    platform/*) echo 1 ;;
    ui/*) echo 2 ;;
    app/*) echo 4 ;;
    *) echo 3 ;; # the subsystems: shortcuts, capture, editor, cards, ocr, recorder, …
    esac
}

bad=0
while IFS= read -r -d '' file; do
    from=$(layer "$file")
    while IFS= read -r included; do
        [ -e "$included" ] || continue # a system or Qt header
        to=$(layer "$included")
        if [ "$to" -gt "$from" ]; then
            echo "$file includes $included from a higher layer"
            bad=1
        fi
        case "$file" in
        platform/*/api/*)
            case "$included" in
            base/* | platform/*/api/*) ;;
            *) echo "$file is an interface but includes the backend header $included"; bad=1 ;;
            esac
            ;;
        esac
    done < <(sed -n 's/^#include "\([^"]*\)".*/\1/p' "$file")
    if [ "$from" != 1 ] && grep -qE '\bxcb_|<xcb/' "$file"; then
        echo "$file talks to the X server outside src/platform"
        bad=1
    fi
done < <(find . \( -name '*.h' -o -name '*.cpp' \) -print0 | sed -z 's#^\./##')

[ "$bad" = 0 ] && echo "layers: every include points down"
exit $bad
