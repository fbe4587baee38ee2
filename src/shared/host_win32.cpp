// The host on Windows: names and files.
//
// Names are taken as the program's code page has them, which the manifest makes UTF-8. Offsets are
// 64 bits wide and go with each transfer.
#include "shared/host_win32.h"

#include <algorithm>
#include <fcntl.h>
#include <initializer_list>

const host_path_rules host_paths = host_path_rules::windows;
const char host_separator = '\\';
const uint32_t host_mode_bits = 0200;
const char host_line_end[] = "\r\n";
const char host_program_suffix[] = ".exe";

// Read by the runtime before main: a star in an option is meant for us, not for files.
extern "C" {
extern int _dowildcard;
int _dowildcard = 0;
}

namespace {

HANDLE handle_of(int descriptor) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

uint64_t join(DWORD high, DWORD low) {
    return uint64_t{high} << 32 | low;
}

constexpr int64_t ticks_a_second = 10'000'000;
constexpr int64_t seconds_from_1601_to_1970 = 11'644'473'600;

// Of permissions there is only the read-only attribute, which means nothing for directories. What
// others may do is said as most systems have it, because archives keep it.
uint32_t mode_from(DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return 0777;
    return (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0444 : 0644;
}

DWORD attributes_with_mode(DWORD attributes, uint32_t mode) {
    constexpr uint32_t owner_may_write = 0200;
    attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
    if ((mode & owner_may_write) == 0)
        attributes |= FILE_ATTRIBUTE_READONLY;
    return attributes != 0 ? attributes : FILE_ATTRIBUTE_NORMAL;
}

std::optional<host_status> status_of_handle(HANDLE file) {
    host_status status;
    BY_HANDLE_FILE_INFORMATION found;
    if (!GetFileInformationByHandle(file, &found)) {
        if (GetFileType(file) == FILE_TYPE_UNKNOWN)
            return std::nullopt;
        status.mode = 0644; // a device or a pipe
        return status;
    }
    status.is_directory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    status.is_regular = !status.is_directory && GetFileType(file) == FILE_TYPE_DISK;
    status.size = join(found.nFileSizeHigh, found.nFileSizeLow);
    status.device = found.dwVolumeSerialNumber;
    status.number = join(found.nFileIndexHigh, found.nFileIndexLow);
    status.mode = mode_from(found.dwFileAttributes);
    status.modified = host_win32_seconds(found.ftLastWriteTime);
    return status;
}

std::optional<host_status> status_of_name(const char* name, bool follow_links) {
    const errno_keeper error;
    const scoped_handle file(host_win32_open_name(name, FILE_READ_ATTRIBUTES, follow_links));
    if (file.is_open())
        return status_of_handle(file.handle);
    return std::nullopt;
}

DWORD attributes_of(const char* name) {
    const errno_keeper error;
    return GetFileAttributesA(name);
}

// Whether a reason may be gone in a moment: someone else, a virus scanner say, looks at the file.
bool is_passing(DWORD reason) {
    return reason == ERROR_SHARING_VIOLATION || reason == ERROR_LOCK_VIOLATION ||
           reason == ERROR_ACCESS_DENIED || reason == ERROR_USER_MAPPED_FILE;
}

// Whether the name is refused for what it is, for as long as it is so.
bool is_refused_for_good(const char* name) {
    const DWORD attributes = attributes_of(name);
    return attributes != INVALID_FILE_ATTRIBUTES &&
           (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) != 0;
}

// As much as one call can move, also across a network.
DWORD piece_of(uint64_t size) {
    return static_cast<DWORD>(std::min(size, uint64_t{1} << 24));
}

OVERLAPPED place_at(uint64_t offset) {
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset & UINT32_MAX);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

bool is_offset(uint64_t offset) {
    return offset <= static_cast<uint64_t>(INT64_MAX);
}

} // namespace

int host_win32_error_number(DWORD reason) {
    static const struct {
        int number;
        std::initializer_list<DWORD> reasons;
    } table[] = {
        {ENOENT,
         {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_INVALID_DRIVE, ERROR_NO_MORE_FILES,
          ERROR_BAD_NETPATH, ERROR_BAD_NET_NAME, ERROR_INVALID_NAME, ERROR_BAD_PATHNAME}},
        {EMFILE, {ERROR_TOO_MANY_OPEN_FILES}},
        {EACCES,
         {ERROR_ACCESS_DENIED, ERROR_CURRENT_DIRECTORY, ERROR_SHARING_VIOLATION,
          ERROR_LOCK_VIOLATION, ERROR_NETWORK_ACCESS_DENIED, ERROR_DELETE_PENDING,
          ERROR_USER_MAPPED_FILE}},
        {EBADF, {ERROR_INVALID_HANDLE}},
        {ENOMEM,
         {ERROR_NOT_ENOUGH_MEMORY, ERROR_OUTOFMEMORY, ERROR_NO_SYSTEM_RESOURCES,
          ERROR_COMMITMENT_LIMIT}},
        {EXDEV, {ERROR_NOT_SAME_DEVICE}},
        {EROFS, {ERROR_WRITE_PROTECT}},
        {EIO,
         {ERROR_NOT_READY, ERROR_CRC, ERROR_SEEK, ERROR_SECTOR_NOT_FOUND, ERROR_WRITE_FAULT,
          ERROR_READ_FAULT, ERROR_GEN_FAILURE, ERROR_UNEXP_NET_ERR, ERROR_NETNAME_DELETED,
          ERROR_SEM_TIMEOUT, ERROR_IO_DEVICE}},
        {ENOSPC, {ERROR_HANDLE_DISK_FULL, ERROR_DISK_FULL}},
        {EEXIST, {ERROR_FILE_EXISTS, ERROR_ALREADY_EXISTS}},
        {EPIPE, {ERROR_BROKEN_PIPE, ERROR_NO_DATA}},
        {ENOTEMPTY, {ERROR_DIR_NOT_EMPTY}},
        {EBUSY, {ERROR_BUSY}},
        {ENAMETOOLONG, {ERROR_FILENAME_EXCED_RANGE}},
        {EFBIG, {ERROR_FILE_TOO_LARGE}},
        {ENOTDIR, {ERROR_DIRECTORY}},
        {EPERM, {ERROR_PRIVILEGE_NOT_HELD}},
        {ELOOP, {ERROR_CANT_RESOLVE_FILENAME}},
    };
    for (const auto& row : table)
        if (std::ranges::find(row.reasons, reason) != row.reasons.end())
            return row.number;
    return EINVAL;
}

int host_win32_descriptor(HANDLE handle) {
    const int descriptor =
        _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_BINARY | _O_NOINHERIT);
    if (descriptor < 0)
        CloseHandle(handle);
    return descriptor;
}

HANDLE host_win32_open_name(const char* name, DWORD access, bool follow_links) {
    const DWORD no_follow = follow_links ? 0 : FILE_FLAG_OPEN_REPARSE_POINT;
    return CreateFileA(name, access, host_win32_share_all, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS | no_follow, nullptr);
}

int64_t host_win32_seconds(FILETIME time) {
    const uint64_t ticks = join(time.dwHighDateTime, time.dwLowDateTime);
    return static_cast<int64_t>(ticks / ticks_a_second) - seconds_from_1601_to_1970;
}

FILETIME host_win32_file_time(int64_t seconds) {
    const int64_t ticks = (seconds + seconds_from_1601_to_1970) * ticks_a_second;
    return {static_cast<DWORD>(ticks & UINT32_MAX), static_cast<DWORD>(ticks >> 32)};
}

std::optional<host_status> host_status_of(const char* name) {
    return status_of_name(name, true);
}

std::optional<host_status> host_status_of_link(const char* name) {
    std::optional<host_status> status = status_of_name(name, false);
    if (status && host_win32_is_link(name))
        status->is_directory = status->is_regular = false;
    return status;
}

bool host_name_taken(const char* name) {
    return attributes_of(name) != INVALID_FILE_ATTRIBUTES;
}

bool host_readable(const char* name) {
    const errno_keeper error;
    return scoped_handle(host_win32_open_name(name, GENERIC_READ, true)).is_open();
}

bool host_usable_directory(const char* name) {
    const errno_keeper error;
    const DWORD attributes = attributes_of(name);
    constexpr DWORD making = FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY;
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           scoped_handle(host_win32_open_name(name, making, true)).is_open();
}

std::optional<std::string> host_full_path(const char* name) {
    const errno_keeper error;
    if (*name == '\0')
        return std::nullopt;
    std::string full(MAX_PATH, '\0');
    DWORD length = 0;
    while ((length = GetFullPathNameA(name, static_cast<DWORD>(full.size()), full.data(),
                                      nullptr)) >= full.size())
        full.resize(length); // which counts the end of the text
    if (length == 0)
        return std::nullopt;
    full.resize(length);
    constexpr size_t root_length = 3; // "C:\"
    if (full.size() > root_length && full.back() == host_separator)
        full.pop_back();
    return full;
}

int host_rename(const char* from, const char* to) {
    constexpr DWORD patience = 1000, pause = 20; // milliseconds
    errno_keeper error;
    const ULONGLONG start = GetTickCount64();
    while (!MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING)) {
        const DWORD reason = GetLastError();
        if (!is_passing(reason) || is_refused_for_good(to) || GetTickCount64() - start >= patience)
            return error.fail(reason);
        Sleep(pause);
    }
    return 0;
}

int host_delete(const char* name) {
    errno_keeper error;
    return DeleteFileA(name) ? 0 : error.fail();
}

int host_set_length(const char* name, uint64_t length) {
    errno_keeper error;
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(length);
    if (end.EndOfFile.QuadPart < 0)
        return error.fail(ERROR_INVALID_PARAMETER);
    const scoped_handle file(host_win32_open_name(name, GENERIC_WRITE, true));
    if (!file.is_open() ||
        !SetFileInformationByHandle(file.handle, FileEndOfFileInfo, &end, sizeof end))
        return error.fail();
    return 0;
}

int host_set_mode(const char* name, uint32_t mode) {
    errno_keeper error;
    const DWORD attributes = GetFileAttributesA(name);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return error.fail();
    const DWORD wanted = attributes_with_mode(attributes, mode);
    return wanted == attributes || SetFileAttributesA(name, wanted) ? 0 : error.fail();
}

// An existing file keeps its attributes when it is emptied, so that happens behind the opening.
int host_open(const char* name, host_access access) {
    constexpr DWORD both = GENERIC_READ | GENERIC_WRITE;
    static const struct {
        DWORD rights, disposition;
    } ways[] = {{GENERIC_READ, OPEN_EXISTING}, {both, OPEN_EXISTING}, {GENERIC_WRITE, OPEN_ALWAYS},
                {GENERIC_WRITE, CREATE_NEW},   {both, CREATE_NEW},    {GENERIC_WRITE, OPEN_ALWAYS}};
    errno_keeper error;
    const auto [rights, disposition] = ways[static_cast<size_t>(access)];
    // As on other hosts a directory can be opened, and then be seen to be one.
    const DWORD flags = access == host_access::read ? FILE_FLAG_BACKUP_SEMANTICS : 0;
    const HANDLE file = CreateFileA(name, rights, host_win32_share_all, nullptr, disposition,
                                    FILE_ATTRIBUTE_NORMAL | flags, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return error.fail();
    if (access == host_access::create && GetFileType(file) == FILE_TYPE_DISK &&
        !SetEndOfFile(file)) {
        error.fail();
        CloseHandle(file);
        return -1;
    }
    const int descriptor = host_win32_descriptor(file);
    if (descriptor < 0)
        error.fail(ERROR_TOO_MANY_OPEN_FILES);
    return descriptor;
}

int host_close(int descriptor) {
    const int saved = errno;
    if (_close(descriptor) != 0)
        return -1;
    errno = saved;
    return 0;
}

std::optional<host_status> host_descriptor_status(int descriptor) {
    errno_keeper error;
    std::optional<host_status> status = status_of_handle(handle_of(descriptor));
    if (!status)
        error.fail();
    return status;
}

int64_t host_read_at(int descriptor, void* buffer, size_t size, uint64_t offset) {
    errno_keeper error;
    if (!is_offset(offset))
        return error.fail(ERROR_INVALID_PARAMETER);
    OVERLAPPED place = place_at(offset);
    DWORD moved = 0;
    if (ReadFile(handle_of(descriptor), buffer, piece_of(size), &moved, &place))
        return moved;
    const DWORD reason = GetLastError();
    return reason == ERROR_HANDLE_EOF || reason == ERROR_BROKEN_PIPE ? 0 : error.fail(reason);
}

int64_t host_write_at(int descriptor, const void* buffer, size_t size, uint64_t offset) {
    errno_keeper error;
    if (!is_offset(offset))
        return error.fail(ERROR_INVALID_PARAMETER);
    OVERLAPPED place = place_at(offset);
    DWORD moved = 0;
    if (!WriteFile(handle_of(descriptor), buffer, piece_of(size), &moved, &place))
        return error.fail();
    if (moved == 0 && size != 0)
        return error.fail(ERROR_DISK_FULL); // else the caller would go round for ever
    return moved;
}

// These two are the runtime's, because standard streams are text for it.
int64_t host_read(int descriptor, void* buffer, uint32_t size) {
    const int saved = errno;
    const int moved = _read(descriptor, buffer, piece_of(size));
    if (moved >= 0)
        errno = saved;
    return moved;
}

int64_t host_write(int descriptor, const void* buffer, uint32_t size) {
    const int saved = errno;
    const int moved = _write(descriptor, buffer, piece_of(size));
    if (moved > 0 || (moved == 0 && size == 0))
        errno = saved;
    else if (moved == 0)
        errno = ENOSPC;
    return moved == 0 && size != 0 ? -1 : moved;
}

// Owners are not told apart by number here.
bool host_is_users_own(const host_status&) {
    return true;
}

// A new file belongs to its maker, and its rights are those of its directory.
int host_set_owner(int, uint32_t, uint32_t) {
    return 0;
}

int host_set_mode(int descriptor, uint32_t mode) {
    errno_keeper error;
    const HANDLE file = handle_of(descriptor);
    FILE_BASIC_INFO info = {};
    if (!GetFileInformationByHandleEx(file, FileBasicInfo, &info, sizeof info))
        return error.fail();
    const DWORD wanted = attributes_with_mode(info.FileAttributes, mode);
    FILE_BASIC_INFO change = {}; // zeros leave the times as they are
    change.FileAttributes = wanted;
    if (wanted != info.FileAttributes &&
        !SetFileInformationByHandle(file, FileBasicInfo, &change, sizeof change))
        return error.fail();
    return 0;
}

// Every position is allowed; whether the disk reaches that far shows when something is written.
int host_check_offset(int descriptor, int64_t offset) {
    errno_keeper error;
    LARGE_INTEGER place;
    place.QuadPart = offset;
    return SetFilePointerEx(handle_of(descriptor), place, nullptr, FILE_BEGIN) ? 0 : error.fail();
}
