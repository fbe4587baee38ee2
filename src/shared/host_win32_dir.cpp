// The host on Windows: directories, links, and the files that serve as locks.
//
// As on other hosts, nothing here follows a link: a name is looked at and removed as what it is
// itself.
#include <aclapi.h>
#include <memory>

#include "shared/genpath.h"
#include "shared/host_win32.h"

namespace {

struct search_closer {
    using pointer = HANDLE;
    void operator()(HANDLE search) const { FindClose(search); }
};
using search_handle = std::unique_ptr<HANDLE, search_closer>;
constexpr DWORD bad_attributes = INVALID_FILE_ATTRIBUTES;

bool is_directory(DWORD attributes) {
    return attributes != bad_attributes && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool is_sid_of_process(PSID sid, TOKEN_INFORMATION_CLASS which) {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened))
        return false;
    const scoped_handle token(opened);
    // Both records begin with a pointer to the identifier.
    alignas(TOKEN_USER) std::byte record[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    if (!GetTokenInformation(opened, which, record, sizeof record, &size))
        return false;
    const PSID own = which == TokenUser ? reinterpret_cast<TOKEN_USER*>(record)->User.Sid
                                        : reinterpret_cast<TOKEN_OWNER*>(record)->Owner;
    return EqualSid(sid, own) != FALSE;
}

// What is read-only cannot be deleted.
void allow_removal(const char* name, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
        SetFileAttributesA(name, attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
}

} // namespace

bool host_win32_is_link(const char* name) {
    const DWORD attributes = GetFileAttributesA(name);
    if (attributes == bad_attributes || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return false;
    const scoped_handle link(host_win32_open_name(name, FILE_READ_ATTRIBUTES, false));
    FILE_ATTRIBUTE_TAG_INFO info = {};
    return link.is_open() &&
           GetFileInformationByHandleEx(link.handle, FileAttributeTagInfo, &info, sizeof info) &&
           IsReparseTagNameSurrogate(info.ReparseTag);
}

// The host follows a chain of links by itself and tells its end: an absolute name.
std::optional<std::string> host_link_target(const char* name) {
    const errno_keeper error;
    if (!host_win32_is_link(name))
        return std::nullopt;
    const scoped_handle file(host_win32_open_name(name, FILE_READ_ATTRIBUTES, true));
    std::string target(32768, '\0'); // no name is longer
    const DWORD length = file.is_open()
                             ? GetFinalPathNameByHandleA(file.handle, target.data(),
                                                         static_cast<DWORD>(target.size()), 0)
                             : 0;
    if (length == 0 || length >= target.size())
        return std::nullopt;
    target.resize(length);
    if (target.starts_with("\\\\?\\UNC\\"))
        return "\\\\" + target.substr(8);
    if (target.starts_with("\\\\?\\"))
        return target.substr(4);
    return target;
}

int host_make_directory(const char* name, uint32_t) {
    errno_keeper error;
    return CreateDirectoryA(name, nullptr) ? 0 : error.fail();
}

int host_remove_directory(const char* name) {
    errno_keeper error;
    return RemoveDirectoryA(name) ? 0 : error.fail();
}

std::optional<std::vector<std::string>> host_list_directory(const char* name) {
    errno_keeper error;
    if (host_win32_is_link(name)) {
        error.fail(ERROR_DIRECTORY);
        return std::nullopt;
    }
    std::vector<std::string> names;
    WIN32_FIND_DATAA entry;
    const HANDLE first = FindFirstFileA(gen_join(name, "*").c_str(), &entry);
    if (first == INVALID_HANDLE_VALUE) {
        const DWORD reason = GetLastError();
        // The root of an empty drive has not even "." and "..".
        if (reason == ERROR_FILE_NOT_FOUND && is_directory(GetFileAttributesA(name)))
            return names;
        error.fail(reason);
        return std::nullopt;
    }
    const search_handle search(first);
    do {
        std::string found = entry.cFileName;
        if (found != "." && found != "..")
            names.push_back(std::move(found));
    } while (FindNextFileA(first, &entry));
    if (GetLastError() == ERROR_NO_MORE_FILES)
        return names;
    error.fail();
    return std::nullopt;
}

int host_set_times(const char* name, int64_t time) {
    errno_keeper error;
    const FILETIME ticks = host_win32_file_time(time);
    const scoped_handle file(host_win32_open_name(name, FILE_WRITE_ATTRIBUTES, false));
    return file.is_open() && SetFileTime(file.handle, nullptr, &ticks, &ticks) ? 0 : error.fail();
}

// Who may write to it is inherited from where it stands; whose it is tells who made it. What an
// administrator makes may belong to the group of them.
bool host_is_private_directory(const char* name) {
    const errno_keeper error;
    if (!is_directory(GetFileAttributesA(name)) || host_win32_is_link(name))
        return false;
    const scoped_handle directory(host_win32_open_name(name, READ_CONTROL, false));
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!directory.is_open() ||
        GetSecurityInfo(directory.handle, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                        nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const bool own = is_sid_of_process(owner, TokenUser) || is_sid_of_process(owner, TokenOwner);
    LocalFree(descriptor);
    return own;
}

int host_remove_tree(const char* name) {
    errno_keeper error;
    const DWORD attributes = GetFileAttributesA(name);
    if (attributes == bad_attributes)
        return error.fail();
    allow_removal(name, attributes);
    if (!is_directory(attributes))
        return DeleteFileA(name) ? 0 : error.fail();
    int result = 0;
    if (!host_win32_is_link(name))
        for (const std::string& entry :
             host_list_directory(name).value_or(std::vector<std::string>()))
            if (host_remove_tree(gen_join(name, entry).c_str()) != 0) {
                error.saved = errno;
                result = -1;
            }
    if (result == 0 && !RemoveDirectoryA(name))
        result = error.fail();
    return result;
}

host_lock_outcome host_create_lock(const char* name, int& descriptor) {
    errno_keeper error;
    const HANDLE file = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD reason = GetLastError();
        // Someone else's lock that is on its way out refuses access.
        if (reason == ERROR_FILE_EXISTS || reason == ERROR_ALREADY_EXISTS ||
            reason == ERROR_SHARING_VIOLATION || reason == ERROR_ACCESS_DENIED)
            return host_lock_outcome::contended;
        error.fail(reason);
        return host_lock_outcome::failed;
    }
    descriptor = host_win32_descriptor(file);
    if (descriptor >= 0)
        return host_lock_outcome::held;
    error.fail(ERROR_TOO_MANY_OPEN_FILES);
    return host_lock_outcome::failed;
}

// The system removes the file as its handle is closed.
int host_close_lock(int descriptor, const char*) {
    return host_close(descriptor);
}

// An owner that lives shares its file with nobody, so what can be removed has none. The name is
// free when the caller closes the descriptor.
int host_remove_lock(int descriptor, const char* name) {
    errno_keeper error;
    const std::optional<host_status> named = host_status_of_link(name);
    const std::optional<host_status> opened =
        descriptor >= 0 ? host_descriptor_status(descriptor) : named;
    const bool is_same =
        named && opened && named->device == opened->device && named->number == opened->number;
    if (!is_same || DeleteFileA(name) || GetLastError() == ERROR_FILE_NOT_FOUND)
        return 0;
    return error.fail();
}
