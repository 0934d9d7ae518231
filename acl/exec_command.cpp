// VOXA_ACLs_ExecCommand: parse the command, run what it recorded in the
// fixed order, and hand the text result back through the caller's buffer.
//
// The caller's buffer is input or output, never both: a non-empty text is
// the input of "Restore ... FromVOXAStruct"; an empty one receives the
// listing, if it fits (a listing that does not fit is not returned, and the
// call still succeeds).
#include <cstring>
#include <new>

#include "acl/engine.h"
#include "acl/vocabulary.h"
#include "vxio/acl.h"

namespace vxio::acl {

using platform::os;

Engine::~Engine() {
    if (listFile != INVALID_HANDLE_VALUE) os.CloseHandle(listFile);
}

uint32_t Engine::fail(uint32_t status, DWORD error) {
    lastError = error;
    return status;
}

uint32_t Engine::fail(uint32_t status) { return fail(status, os.GetLastError()); }

namespace {

bool is_nt5_or_later() {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    return os.GetVersionExA(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
           version.dwMajorVersion >= 5;
}

uint32_t write_pass(Engine &engine) {
    const AclCommand &c = engine.command;
    if (c.objectType == kTypeFile) return walk_files(engine, c.objectName, Purpose::Write);
    if (c.objectType == kTypeRegistry) return walk_registry(engine, c.objectName, Purpose::Write);
    return write_object(engine, c.objectName);
}

// Resets the permissions below the object: everything under it gets an
// unprotected list with its explicit entries cleared, so that it inherits
// from the object again. The object itself is left as it is.
uint32_t reset_permissions(Engine &engine) {
    AclCommand &c = engine.command;
    const AclCommand saved = c;
    c.actions = 0;
    c.recursion = kRecurseContainers | kRecurseFiles;
    c.daclProtection = c.saclProtection = kProtectionNoChange;
    c.daclEntryCount = c.saclEntryCount = 0;
    if (saved.resetDacl) {
        c.actions |= kActionSetProtection | kActionClearDacl;
        c.daclProtection = kProtectionNotProtected;
    }
    if (saved.resetSacl) {
        c.actions |= kActionSetProtection | kActionClearSacl;
        c.saclProtection = kProtectionNotProtected;
    }
    engine.resetInProgress = true;
    const uint32_t status = write_pass(engine);
    engine.resetInProgress = false;
    c.actions = saved.actions;
    c.recursion = saved.recursion;
    c.daclProtection = saved.daclProtection;
    c.saclProtection = saved.saclProtection;
    c.daclEntryCount = saved.daclEntryCount;
    c.saclEntryCount = saved.saclEntryCount;
    return status;
}

uint32_t list(Engine &engine) {
    const AclCommand &c = engine.command;
    // List and Restore share one file name (the one written last). With
    // both in a command the name may be Restore's input, which must not be
    // truncated into an output: the listing then goes to the caller only.
    if (!c.fileName.empty() && !(c.actions & kActionRestore)) {
        engine.listFile = os.CreateFileA(c.fileName.c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                         nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (engine.listFile == INVALID_HANDLE_VALUE) return engine.fail(kFileNotOpened);
    }
    uint32_t status;
    if (c.objectType == kTypeFile)
        status = walk_files(engine, c.objectName, Purpose::List);
    else if (c.objectType == kTypeRegistry)
        status = walk_registry(engine, c.objectName, Purpose::List);
    else
        status = list_object(engine, c.objectName);
    if (engine.listFile != INVALID_HANDLE_VALUE) {
        os.CloseHandle(engine.listFile);
        engine.listFile = INVALID_HANDLE_VALUE;
    }
    return status;
}

uint32_t run(Engine &engine) {
    AclCommand &c = engine.command;
    if (c.objectName.empty()) return kNoObject;
    if (!is_nt5_or_later()) return kSystemTooOld;
    switch_privilege("SeBackupPrivilege", true);
    switch_privilege("SeRestorePrivilege", true);

    std::string name = c.objectName;
    uint32_t status = set_object(engine, name);
    if (status != kOk) return status;
    // "audit_success+audit_fail" and some printer words stand for two
    // entries; the ones they add are counted with their list, so that the
    // count check before writing guards against lost entries only.
    const size_t requested = c.aces.size();
    if ((status = apply_permission_words(c.aces, c.objectType)) != kOk) return status;
    for (size_t i = requested; i < c.aces.size(); ++i)
        ++(c.aces[i].list == kListDacl ? c.daclEntryCount : c.saclEntryCount);
    if ((status = resolve_all_trustees(engine)) != kOk) return status;
    if ((status = resolve_domains(engine)) != kOk) return status;
    if (c.objectType == kTypeRegistry) {
        UniqueKey key;
        if ((status = open_registry_key(c.objectName, key)) != kOk) return engine.fail(status);
    }

    if ((c.actions & kActionRestore) && (status = restore(engine)) != kOk) return status;
    const uint32_t writes = kActionAce | kActionSetOwner | kActionSetGroup | kActionClearDacl |
                            kActionClearSacl | kActionSetProtection | kActionTrustee |
                            kActionDomain;
    if ((c.actions & writes) && (status = write_pass(engine)) != kOk) return status;
    if ((c.actions & kActionResetPermissions) && (status = reset_permissions(engine)) != kOk)
        return status;
    if ((c.actions & kActionList) && (status = list(engine)) != kOk) return status;
    return kOk;
}

}  // namespace

uint32_t execute_command(const char *command, char *text, uint32_t textSize) {
    Engine engine;
    struct PrivilegesOff {
        ~PrivilegesOff() { switch_engine_privileges_off(); }
    } privilegesOff;
    const uint32_t parsed = parse_command(command, engine.command);
    if (parsed != kOk) return parsed;
    const bool callerGaveText = text && textSize != 0 && text[0] != '\0';
    if (callerGaveText && textSize + 1 <= kDescriptorTextSize)
        engine.descriptorText.assign(text, strnlen(text, textSize));
    const uint32_t status = run(engine);
    if (status != kOk) return status;
    if (text && textSize != 0 && text[0] == '\0' && engine.descriptorText.size() + 1 <= textSize)
        std::memcpy(text, engine.descriptorText.c_str(), engine.descriptorText.size() + 1);
    return kOk;
}

}  // namespace vxio::acl

extern "C" uint8_t VOXA_ACLs_ExecCommand(const char *command, char *text,
                                         uint32_t textSize) noexcept {
    try {
        return vxio::acl::execute_command(command, text, textSize) == vxio::acl::kOk ? 1 : 0;
    } catch (const std::bad_alloc &) {
        return 0;
    } catch (...) {
        return 0;
    }
}
