# What ditto and installer share: looking an archive through before anything of it is written, and
# unpacking it. To be read in by them; needs bsdtar of libarchive.
#
# Every function leaves in "why" what is wrong when it returns 1. "work" is a folder of the caller's
# that goes with him.
# shellcheck shell=sh
# shellcheck disable=SC2034,SC2154

# Names outside ASCII get lost in any locale that does not know them.
LC_ALL=C.UTF-8
export LC_ALL

# An archive that asks for a password gets a wrong one instead of waiting for somebody to type.
archiver() {
    bsdtar --passphrase none "$@" </dev/null
}

# Holds the listing of an archive, on standard input, against what may be unpacked: nothing may be
# written beside or above the folder that it is unpacked to, not even through a link that the
# archive brings itself. Links must stay inside as well, unless anywhere=1. Prints how many kB it
# takes, or what is wrong.
#
# A name may hold anything, " -> " included; where it is not sure what is name and what is target,
# neither reading may do harm.
survey() {
    awk -v anywhere="$1" '
        function refuse(reason) {
            print reason
            refused = 1
            exit 1
        }
        function cleaned(path) {
            gsub(/\/+/, "/", path)
            while (sub(/^\.\//, "", path)) { }
            while (sub(/\/\.\//, "/", path)) { }
            sub(/\/\.$/, "", path)
            sub(/\/$/, "", path)
            return path
        }
        function check_name(path,    parts, count, index_, way) {
            if (path == "") refuse("it has an entry without a name")
            if (path ~ /^\//) refuse("it has the absolute name " path)
            if (("/" path "/") ~ /\/\.\.\//) refuse("it has the name " path)
            count = split(cleaned(path), parts, "/")
            way = ""
            for (index_ = 1; index_ < count; ++index_) {
                way = way parts[index_]
                if (way in links) refuse("it has " path " behind the link " way)
                way = way "/"
            }
        }
        # How deep below the folder TARGET leads from a link at PATH; below 0 is outside.
        function check_target(path, target,    parts, count, index_, depth) {
            if (anywhere == 1) return
            if (target ~ /^\//) refuse("it has a link to " target)
            depth = split(cleaned(path), parts, "/") - 1
            count = split(cleaned(target), parts, "/")
            for (index_ = 1; index_ <= count; ++index_) {
                depth += parts[index_] == ".." ? -1 : 1
                if (depth < 0) refuse("it has a link to " target)
            }
        }
        # Tries every way to read TEXT as a name, SEPARATOR and a target.
        function check_link(text, separator, hard,    from, at, name, target, found) {
            from = 1
            while ((at = index(substr(text, from), separator)) > 0) {
                name = substr(text, 1, from + at - 2)
                target = substr(text, from + at - 1 + length(separator))
                check_name(name)
                if (hard) {
                    check_name(target)
                } else {
                    check_target(name, target)
                    links[cleaned(name)] = 1
                }
                found = 1
                from += at
            }
            if (!found) refuse("it has a link to nowhere, " text)
        }
        {
            if (++entries > 1000000) refuse("it has more than a million entries")
            columns = "^[^ ]+ +-?[0-9]+ +-?[0-9]+ +-?[0-9]+ +[0-9,]+ +[A-Z][a-z][a-z] +[0-9]+ +[0-9:]+ "
            if (!match($0, columns)) refuse("it has an entry that cannot be read")
            text = substr($0, RLENGTH + 1)
            type = substr($0, 1, 1)
            if (type == "l") {
                check_link(text, " -> ", 0)
            } else if (type == "h") {
                check_link(text, " link to ", 1)
            } else if (type == "-" || type == "d") {
                check_name(text)
                if (type == "-") bytes += $5
            } else {
                refuse("it has " text ", which is neither a file nor a folder nor a link")
            }
        }
        END {
            # What nobody has room for need not be counted, and no shell could.
            if (bytes > 1e18) bytes = 1e18
            if (!refused) printf "%.0f\n", bytes / 1024
        }
    '
}

# Whether ARCHIVE may be unpacked to FOLDER, which need not exist. Nothing is written.
may_unpack() { # ARCHIVE FOLDER ANYWHERE
    answer=$({
        archiver -tvf "$1" --numeric-owner 2>/dev/null
        echo $? >"$work/status"
    } | survey "$3") || {
        why=$answer
        return 1
    }
    if [ "$(cat "$work/status")" -ne 0 ]; then
        why="it is damaged, or no archive"
        return 1
    fi
    place=$2
    while [ ! -d "$place" ]; do
        place=$(dirname -- "$place")
    done
    # The number before the only percentage.
    free=$(df -Pk "$place" 2>/dev/null |
        awk 'NR == 2 { for (i = 2; i <= NF; ++i) if ($i ~ /^[0-9]+%$/) { print $(i - 1); exit } }')
    if [ -n "$free" ] && [ "$answer" -gt "$free" ]; then
        why="it takes $answer kB and there are $free"
        return 1
    fi
}

# Unpacks ARCHIVE to FOLDER. What is there already keeps its owner, and folders their modes; what
# comes new is the caller's, because the numbers of users on the Mac mean others here.
unpack() { # ARCHIVE FOLDER
    archiver -xf "$1" -C "$2" --no-same-owner --no-same-permissions --exclude __MACOSX \
        2>"$work/errors" && return
    why=$(tail -n 1 "$work/errors")
    return 1
}
