// The objects a command works on: the object itself, network drive
// letters, registry key names, and the walks over directory trees and key
// trees that call the per-object list or write step for each object.
#include "acl/engine.h"
#include "acl/text.h"
#include "acl/vocabulary.h"
#include "platform/library.h"

#include <winnetwk.h>

#include <cstring>

namespace vxio::acl {

using platform::os;
using platform::RuntimeLibrary;

namespace {

// Paths of a file walk may be longer than the usual 260 characters.
constexpr size_t kWalkPathSize = 1040;

// A drive letter that stands for a network share is replaced by the share's
// name ("Z:\x" becomes "\\server\share\x"), so that the server can be
// named to trustee lookups. A system without networking (no enumeration)
// leaves the name as it is.
uint32_t map_network_drive(std::string &name) {
    RuntimeLibrary mpr("Mpr.dll");
    auto open = mpr.get<decltype(&::WNetOpenEnumA)>("WNetOpenEnumA");
    auto next = mpr.get<decltype(&::WNetEnumResourceA)>("WNetEnumResourceA");
    auto close = mpr.get<decltype(&::WNetCloseEnum)>("WNetCloseEnum");
    if (!open || !next || !close) return kLibraryMissing;
    HANDLE enumeration = nullptr;
    if (open(RESOURCE_CONNECTED, RESOURCETYPE_DISK, 0, nullptr, &enumeration) != NO_ERROR)
        return kOk;
    std::vector<char> buffer(16384);
    // Bounded: an enumeration that never ends is cut off after this many.
    for (int entries = 0; entries < 4096; ++entries) {
        std::fill(buffer.begin(), buffer.end(), 0);
        DWORD count = 1, size = static_cast<DWORD>(buffer.size());
        if (next(enumeration, &count, buffer.data(), &size) != NO_ERROR || count == 0) break;
        const auto *resource = reinterpret_cast<const NETRESOURCEA *>(buffer.data());
        if (resource->lpLocalName && resource->lpRemoteName &&
            begins_with_ignoring_case(resource->lpLocalName, name.substr(0, 2)) &&
            std::strlen(resource->lpRemoteName) + name.size() - 2 <= kMaxName) {
            name = std::string(resource->lpRemoteName) + name.substr(2);
            break;
        }
    }
    close(enumeration);
    return kOk;
}

}  // namespace

uint32_t set_object(Engine &engine, std::string &name) {
    engine.serverName.clear();
    if (name.empty()) return kBadArgument;
    if (engine.command.objectType == kTypeFile && name.size() >= 2 && name[1] == ':') {
        const uint32_t status = map_network_drive(name);
        if (status != kOk) return status;
    }
    if (name.size() > 2 && name[0] == '\\' && name[1] == '\\' &&
        name.find('\\', 2) != std::string::npos)
        engine.serverName = name.substr(2, 260);
    return kOk;
}

uint32_t open_registry_key(const std::string &given, UniqueKey &key) {
    std::string name = given;
    if (!name.empty() && name.back() == '\\') name.pop_back();
    std::string computer;
    if (name.size() >= 2 && name[0] == '\\' && name[1] == '\\') {
        const size_t end = name.find('\\', 2);
        if (end == std::string::npos) return kRemoteKeyName;
        computer = name.substr(0, end);
        name = name.substr(end + 1);
    }
    const size_t slash = name.find('\\');
    const std::string rootWord = name.substr(0, slash);
    const std::string path = slash == std::string::npos ? "" : name.substr(slash + 1);
    HKEY root = nullptr;
    switch (registry_root_word(rootWord)) {
    case RegistryRoot::CurrentUser: root = HKEY_CURRENT_USER; break;
    case RegistryRoot::ClassesRoot: root = HKEY_CLASSES_ROOT; break;
    case RegistryRoot::Users: root = HKEY_USERS; break;
    case RegistryRoot::LocalMachine: root = HKEY_LOCAL_MACHINE; break;
    default: return kBadArgument;
    }
    // A remote computer's root is connected first; the key is then opened
    // there for reading, which is what listing and walking need.
    UniqueKey remote;
    if (!computer.empty()) {
        const LSTATUS connected = os.RegConnectRegistryA(computer.c_str(), root, remote.addressof());
        if (connected != ERROR_SUCCESS) {
            os.SetLastError(connected);
            return kNoDescriptor;
        }
        root = remote.get();
    }
    const LSTATUS opened = os.RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, key.addressof());
    if (opened != ERROR_SUCCESS) {
        os.SetLastError(opened);
        return kNoDescriptor;
    }
    return kOk;
}

bool filtered_out(const Engine &engine, const std::string &path) {
    if (engine.command.filters.empty()) return false;
    const std::string subject = folded(path.substr(0, kMaxName));
    for (const std::string &filter : engine.command.filters) {
        const std::string needle = folded(filter.substr(0, kMaxName));
        if (subject.find(needle) != std::string::npos) return true;
    }
    return false;
}

uint32_t process_object(Engine &engine, const std::string &name, Purpose purpose) {
    return purpose == Purpose::List ? list_object(engine, name) : write_object(engine, name);
}

namespace {

// One level of a file walk: pattern is "dir\*.*".
uint32_t walk_level(Engine &engine, const std::string &pattern, Purpose purpose) {
    WIN32_FIND_DATAA found;
    UniqueFind find(os.FindFirstFileA(pattern.c_str(), &found));
    if (!find) return engine.fail(kDirectoryUnlistable);
    const std::string prefix = pattern.substr(0, pattern.rfind('\\') + 1);
    const uint32_t mode = engine.command.recursion;
    do {
        // Every name with a leading dot is passed over (".", "..", and also
        // ".cache" or ".profile": the walk's rule, kept).
        if (found.cFileName[0] == '.') continue;
        const std::string path = prefix + found.cFileName;
        uint32_t status = kOk;
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            if (mode & kRecurseContainers) status = process_object(engine, path, purpose);
            // A path that no longer fits is not walked: this also ends a
            // walk that a link loop would make endless.
            if (status == kOk && path.size() + 4 < kWalkPathSize)
                status = walk_level(engine, path + "\\*.*", purpose);
        } else if (mode & kRecurseFiles) {
            status = process_object(engine, path, purpose);
        }
        if (status != kOk) return status;
    } while (os.FindNextFileA(find.get(), &found));
    return kOk;
}

size_t count_backslashes_from_third(const std::string &path) {
    size_t n = 0;
    for (size_t i = 2; i < path.size(); ++i) n += path[i] == '\\';
    return n;
}

}  // namespace

uint32_t walk_files(Engine &engine, const std::string &given, Purpose purpose) {
    if (given.empty() || given.size() >= kWalkPathSize) return kBadArgument;
    if (engine.command.recursion == kRecurseNone || given.back() == ':')
        return process_object(engine, given, purpose);
    std::string path = given;
    if (path.back() == '\\') path.pop_back();
    if (engine.command.recursion & kRecurseContainers) {
        // Whether the starting directory is itself processed follows the
        // walk's own rules: a drive root is (as "X:\"), a "\\?\UNC" path
        // never is, any other path only when it holds exactly three "\"
        // from its third character on.
        uint32_t status = kOk;
        if (!path.empty() && path.back() == ':')
            status = process_object(engine, path + "\\", purpose);
        else if (path.compare(0, 7, "\\\\?\\UNC") != 0 && count_backslashes_from_third(path) == 3)
            status = process_object(engine, path, purpose);
        if (status != kOk) return status;
    }
    if (path.size() + 4 >= kWalkPathSize) return kBadArgument;
    return walk_level(engine, path + "\\*.*", purpose);
}

uint32_t walk_registry(Engine &engine, const std::string &keyName, Purpose purpose) {
    UniqueKey key;
    uint32_t status = open_registry_key(keyName, key);
    if (status != kOk) return engine.fail(status);
    status = process_object(engine, keyName, purpose);
    if (status != kOk || engine.command.recursion == kRecurseNone) return status;

    std::vector<std::string> subkeys;
    for (DWORD index = 0;; ++index) {
        char name[256];
        DWORD length = sizeof name;
        const LSTATUS result =
            os.RegEnumKeyExA(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) break;
        if (result != ERROR_SUCCESS) return engine.fail(kKeyEnumFailed, result);
        subkeys.emplace_back(name, length);
    }
    key.reset();
    // A subtree that fails does not stop its siblings or its parent.
    for (const std::string &sub : subkeys) walk_registry(engine, keyName + "\\" + sub, purpose);
    return kOk;
}

}  // namespace vxio::acl
