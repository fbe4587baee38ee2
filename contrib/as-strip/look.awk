# Looks into the file $SUBJECT and prints what $WHAT says of it. The text stands quoted in a shell
# script, so there is no single quote in it.

function load(from, length_, command, line, parts, n, i) {
    count = 0
    if (length_ <= 0) return
    command = sprintf("od -An -v -tu1 -j %.0f -N %.0f \"$SUBJECT\"", from, length_)
    while ((command | getline line) > 0) {
        n = split(line, parts, " ")
        for (i = 1; i <= n; i++) byte[count++] = parts[i]
    }
    close(command)
}
function number(at, size, value, i) {
    for (i = 0; i < size; i++) value = value * 256 + byte[big ? at + i : at + size - 1 - i]
    return value
}
function text(at, result) {
    for (; at < count && byte[at] != 0; at++) result = result sprintf("%c", byte[at] + 0)
    return result
}
function chars(at, length_, result, i) {
    for (i = at; i < at + length_; i++) result = result sprintf("%c", byte[i] + 0)
    return result
}
function read_header() {
    load(0, 64)
    if (count < 52 || byte[0] != 127 || text(1) !~ /^ELF/) return 0
    wide = byte[4] == 2; big = byte[5] == 2; word = wide ? 8 : 4
    type = number(16, 2)
    phoff = number(wide ? 32 : 28, word); shoff = number(wide ? 40 : 32, word)
    phentsize = number(wide ? 54 : 42, 2); phnum = number(wide ? 56 : 44, 2)
    shentsize = number(wide ? 58 : 46, 2); shnum = number(wide ? 60 : 48, 2)
    shstrndx = number(wide ? 62 : 50, 2)
    return 1
}
function read_sections(i, at) {
    load(shoff, shnum * shentsize)
    for (i = 0; i < shnum; i++) {
        at = i * shentsize
        sh_name[i] = number(at, 4); sh_type[i] = number(at + 4, 4)
        sh_flags[i] = number(at + 8, word)
        sh_offset[i] = number(at + (wide ? 24 : 16), word)
        sh_size[i] = number(at + (wide ? 32 : 20), word)
        sh_link[i] = number(at + (wide ? 40 : 24), 4)
    }
}

# The description of a file in lines: its kind; for ELF files segments, loaded sections ("alloc") and
# relocation sections, the end of what is loaded and of the whole.
function reach(to) { if (to > end) end = to }
function description() {
    if (!read_header()) {
        start = text(0)
        print (start ~ /^!<arch>/ ? "archive" : start ~ /^MZ/ ? "image" : "unknown")
        exit
    }
    odd = shoff == 0 || shnum == 0 || shstrndx >= shnum || phnum == 65535 ||
        shentsize != (wide ? 64 : 40)
    print (odd ? "odd" : type == 1 ? "object" : type == 2 || type == 3 ? "program" : "odd")
    if (odd) exit
    printf "header %.0f\n", wide ? 64 : 52
    reach(shoff + shnum * shentsize)
    if (phnum > 0) reach(phoff + phnum * phentsize)
    load(phoff, phnum * phentsize)
    for (i = 0; i < phnum; i++) {
        at = i * phentsize
        offset = number(at + (wide ? 8 : 4), word); size = number(at + (wide ? 32 : 16), word)
        printf "segment %.0f %.0f %.0f\n", number(at, 4), offset, size
        reach(offset + size)
        if (number(at, 4) == 1 && offset + size > loaded) loaded = offset + size
    }
    read_sections()
    load(sh_offset[shstrndx], sh_size[shstrndx])
    for (i = 1; i < shnum; i++) {
        size = sh_size[i]
        if (sh_type[i] != 8) reach(sh_offset[i] + size)
        if (sh_type[i] == 17) print "group"
        if (int(sh_flags[i] / 2) % 2)
            printf "alloc %s %.0f %.0f %s\n", type == 1 ? "-" : sprintf("%.0f", sh_offset[i]), size,
                   sh_type[i], text(sh_name[i])
        if (sh_type[i] == 4 || sh_type[i] == 9)
            printf "relocations %.0f %s\n", size, text(sh_name[i])
    }
    printf "loaded %.0f\nend %.0f\n", loaded, end
}

# The names of FILE symbols that no other symbol has, in the order of the table.
function file_names() {
    read_header()
    read_sections()
    for (i = 1; i < shnum; i++) if (sh_type[i] == 2) table = i
    if (!table) exit
    entry = wide ? 24 : 16
    symbols = int(sh_size[table] / entry)
    strings = sh_offset[sh_link[table]]
    for (i = 0; i < symbols; i++) {
        if (i % 4096 == 0)
            load(sh_offset[table] + i * entry, (symbols - i > 4096 ? 4096 : symbols - i) * entry)
        at = i % 4096 * entry
        name = number(at, 4)
        if (byte[at + (wide ? 4 : 12)] % 16 != 4) other[name] = 1
        else if (name && !(name in seen)) { seen[name] = 1; found[found_count++] = name }
    }
    for (i = 0; i < found_count && listed < 900; i++) {
        if (found[i] in other) continue
        load(strings + found[i], 1024)
        name = text(0)
        if (name ~ /^[^*]/ && name ~ /[^*]$/ && name !~ /[^ -~]/) { print name; listed++ }
    }
}

# The members of an archive: where the data is, its size, date and mode, and the name.
function members() {
    end = ENVIRON["SIZE"]
    for (at = 8; at + 60 <= end; at += 60 + size + size % 2) {
        load(at, 60)
        head = chars(0, 60)
        name = substr(head, 1, 16); date = substr(head, 17, 12) + 0
        mode = substr(head, 41, 8); size = substr(head, 49, 10) + 0
        sub(/ +$/, "", name)
        if (substr(head, 59) != "`\n" || at + 60 + size > end || size < 0 || name ~ /^#1\//) exit 1
        if (name == "//") {
            load(at + 60, size)
            names = chars(0, size)
        }
        if (name ~ /^\/[0-9]/) {
            name = substr(names, substr(name, 2) + 1)
            sub(/\n.*/, "", name)
        } else if (name ~ /^(\/|__\.SYMDEF)/) continue
        sub(/\/$/, "", name)
        if (name == "" || name ~ /[\/\n]/) exit 1
        printf "%.0f %.0f %.0f %s %s\n", at + 60, size, date, mode ~ /[0-7]/ ? mode + 0 : 644, name
    }
}

BEGIN {
    what = ENVIRON["WHAT"]
    if (what == "description") description()
    else if (what == "file names") file_names()
    else members()
}
