// Plain calls of the host: an execution takes about as long as they do.
#include "support/files.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void must(bool done, const std::string& what) {
    if (done)
        return;
    perror(what.c_str());
    abort();
}

} // namespace

void put_file(const std::string& name, const std::string& bytes) {
    const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    must(file >= 0, name);
    must(write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), name);
    const timespec long_ago[2] = {{1000000000, 0}, {1000000000, 0}};
    must(futimens(file, long_ago) == 0, name);
    close(file);
}

kept_file look_at_file(const std::string& name) {
    kept_file file;
    const int descriptor = open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0)
        return file;
    struct stat status = {};
    must(fstat(descriptor, &status) == 0, name);
    file.inode = status.st_ino;
    file.modified = status.st_mtim.tv_sec * 1000000000LL + status.st_mtim.tv_nsec;
    file.bytes.resize(static_cast<size_t>(status.st_size));
    must(read(descriptor, file.bytes.data(), file.bytes.size()) == status.st_size, name);
    close(descriptor);
    return file;
}

std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    DIR* const open_directory = opendir(directory.c_str());
    must(open_directory != nullptr, directory);
    while (const dirent* const entry = readdir(open_directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(open_directory);
    std::sort(names.begin(), names.end());
    return names;
}

void remove_files(const std::vector<std::string>& names) {
    for (const std::string& name : names)
        must(unlink(name.c_str()) == 0, name);
}

std::string make_scratch() {
    const char* const wanted = getenv("TMPDIR");
    std::string name = wanted != nullptr               ? wanted
                       : access("/dev/shm", W_OK) == 0 ? "/dev/shm"
                                                       : "/tmp";
    name += "/objtrim_fuzz_XXXXXX";
    must(mkdtemp(name.data()) != nullptr, name);
    return name;
}
