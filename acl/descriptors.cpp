// Reading an object's security descriptor, listing it as a record,
// restoring records, and the write pass that edits and writes descriptors.
// The security functions that may be missing are looked up in
// "Advapi32.dll" at each use.
#include <aclapi.h>
#include <sddl.h>

#include <cstring>

#include "acl/engine.h"
#include "acl/records.h"
#include "acl/text.h"
#include "platform/library.h"

namespace vxio::acl {

using platform::os;
using platform::RuntimeLibrary;

namespace {

// An absolute descriptor and the blocks it points into. Empty parts are
// null (an object without that part, or a part that was not asked for).
struct Descriptor {
    LocalBlock selfRelative;  // as the system gave it
    std::vector<uint8_t> absolute, dacl, sacl, owner, group;
    PACL daclList = nullptr;  // may be replaced by an edited list
    PACL saclList = nullptr;
    LocalBlock editedDacl, editedSacl;          // lists made by SetEntriesInAclA
    std::vector<uint8_t> rebuiltDacl, rebuiltSacl;  // lists rebuilt by trustee rules
    uint16_t control = 0;

    PSID ownerSid() { return owner.empty() ? nullptr : owner.data(); }
    PSID groupSid() { return group.empty() ? nullptr : group.data(); }
};

uint32_t make_absolute(Engine &engine, PSECURITY_DESCRIPTOR relative, Descriptor &d) {
    DWORD sizes[5] = {0, 0, 0, 0, 0};
    os.MakeAbsoluteSD(relative, nullptr, &sizes[0], nullptr, &sizes[1], nullptr, &sizes[2],
                      nullptr, &sizes[3], nullptr, &sizes[4]);
    d.absolute.assign(sizes[0] ? sizes[0] : 1, 0);
    d.dacl.assign(sizes[1], 0);
    d.sacl.assign(sizes[2], 0);
    d.owner.assign(sizes[3], 0);
    d.group.assign(sizes[4], 0);
    auto at = [](std::vector<uint8_t> &v) { return v.empty() ? nullptr : v.data(); };
    if (!os.MakeAbsoluteSD(relative, at(d.absolute), &sizes[0], reinterpret_cast<PACL>(at(d.dacl)),
                           &sizes[1], reinterpret_cast<PACL>(at(d.sacl)), &sizes[2], at(d.owner),
                           &sizes[3], at(d.group), &sizes[4]))
        return engine.fail(kDescriptorConversion);
    d.daclList = reinterpret_cast<PACL>(at(d.dacl));
    d.saclList = reinterpret_cast<PACL>(at(d.sacl));
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (os.GetSecurityDescriptorControl(relative, &control, &revision)) d.control = control;
    return kOk;
}

// A file whose descriptor the system refuses is opened once the way backup
// programs open it, and the descriptor asked for again. The open is made
// only after a refusal: it costs a round trip per object, and opening
// without sharing would briefly lock other openers out of a file that was
// readable all along. Its own result does not matter.
void probe_file(const std::string &name, DWORD access) {
    UniqueFile probe(os.CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

uint32_t read_descriptor(Engine &engine, const std::string &name, uint32_t type,
                         SECURITY_INFORMATION bits, Descriptor &d, bool &absent) {
    absent = false;
    if ((bits & kInfoSacl) && switch_privilege("SeSecurityPrivilege", true) != kOk)
        return engine.fail(kPrivilegeFailed);
    if (type == kTypeRegistry) {
        UniqueKey key;
        const uint32_t status = open_registry_key(name, key);
        if (status != kOk) return engine.fail(status);
    }
    RuntimeLibrary advapi("Advapi32.dll");
    auto get = advapi.get<decltype(&::GetNamedSecurityInfoA)>("GetNamedSecurityInfoA");
    if (!get) return kNoMemory;
    std::string object = name;  // the function takes a writable text
    PSECURITY_DESCRIPTOR relative = nullptr;
    auto ask = [&] {
        return get(object.data(), static_cast<SE_OBJECT_TYPE>(type), bits, nullptr, nullptr,
                   nullptr, nullptr, &relative);
    };
    DWORD result = ask();
    if (result != ERROR_SUCCESS && type == kTypeFile) {
        probe_file(name, (bits & kInfoSacl) ? ACCESS_SYSTEM_SECURITY | READ_CONTROL : READ_CONTROL);
        result = ask();
    }
    if (result != ERROR_SUCCESS) return engine.fail(kNoDescriptor, result);
    if (!relative) {
        absent = true;
        return kOk;
    }
    d.selfRelative.reset(relative);
    return make_absolute(engine, relative, d);
}

std::string sid_text(PSID sid) {
    if (!sid) return "";
    char name[260], domain[260];
    DWORD nameSize = sizeof name, domainSize = sizeof domain;
    SID_NAME_USE use;
    if (os.LookupAccountSidA(nullptr, sid, name, &nameSize, domain, &domainSize, &use))
        return domain[0] ? std::string(domain) + "\\" + name : std::string(name);
    // A SID without a name is shown as the SID itself.
    RuntimeLibrary advapi("Advapi32.dll");
    auto convert = advapi.get<decltype(&::ConvertSidToStringSidA)>("ConvertSidToStringSidA");
    char *text = nullptr;
    if (!convert || !convert(sid, &text)) return "";
    std::string out = text;
    os.LocalFree(text);
    return out;
}

// The entries of a list; the SID of an object-specific entry is not at a
// fixed place, so such entries are shown without an account.
std::vector<AceView> entries_of(PACL list) {
    std::vector<AceView> out;
    ACL_SIZE_INFORMATION size{};
    if (!list || !os.GetAclInformation(list, &size, sizeof size, AclSizeInformation)) return out;
    for (DWORD i = 0; i < size.AceCount; ++i) {
        void *ace = nullptr;
        if (!os.GetAce(list, i, &ace)) break;
        auto *header = static_cast<ACE_HEADER *>(ace);
        AceView view;
        view.type = header->AceType;
        view.flags = header->AceFlags;
        view.mask = reinterpret_cast<ACCESS_ALLOWED_ACE *>(ace)->Mask;
        if (view.type <= SYSTEM_ALARM_ACE_TYPE)
            view.account = sid_text(&reinterpret_cast<ACCESS_ALLOWED_ACE *>(ace)->SidStart);
        out.push_back(view);
    }
    return out;
}

// Text-mode output: every line feed is written as CR LF, so the record's
// own "\r\n" ends as "\r\r\n" in the file, as listings always have.
uint32_t write_record_line(Engine &engine, const std::string &record) {
    std::string text;
    for (char c : record + "\r\n") {
        if (c == '\n') text += '\r';
        text += c;
    }
    DWORD done = 0;
    if (!os.WriteFile(engine.listFile, text.data(), static_cast<DWORD>(text.size()), &done,
                      nullptr) || done != text.size())
        return engine.fail(kFileWriteFailed);
    return kOk;
}

std::string without_trailing_backslash(std::string path) {
    if (!path.empty() && path.back() == '\\') path.pop_back();
    return path;
}

// Deletes the entries whose flags hold (sense 1) or lack (sense 0) flag.
uint32_t filter_entries(Engine &engine, PACL list, uint8_t flag, bool sense) {
    if (!list) return kOk;
    ACL_SIZE_INFORMATION size{};
    if (!os.GetAclInformation(list, &size, sizeof size, AclSizeInformation))
        return engine.fail(kAclUnreadable);
    for (DWORD i = 0; i < size.AceCount;) {
        void *ace = nullptr;
        if (!os.GetAce(list, i, &ace)) return engine.fail(kAclUnreadable);
        const bool has = (static_cast<ACE_HEADER *>(ace)->AceFlags & flag) != 0;
        if (has == sense) {
            if (!os.DeleteAce(list, i)) return engine.fail(kAceNotDeleted);
            --size.AceCount;
        } else {
            ++i;
        }
    }
    return kOk;
}

// Rebuilds list into storage with entry `at` given the SID put (replace), or
// followed by a copy of itself for put (copy).
bool rebuild_list(PACL list, DWORD at, PSID put, bool copy, std::vector<uint8_t> &storage) {
    ACL_SIZE_INFORMATION size{};
    if (!os.GetAclInformation(list, &size, sizeof size, AclSizeInformation)) return false;
    std::vector<uint8_t> built(size.AclBytesInUse + 16 + os.GetLengthSid(put) + 64);
    auto *fresh = reinterpret_cast<PACL>(built.data());
    if (!os.InitializeAcl(fresh, static_cast<DWORD>(built.size()), ACL_REVISION_DS)) return false;
    for (DWORD i = 0; i < size.AceCount; ++i) {
        void *ace = nullptr;
        if (!os.GetAce(list, i, &ace)) return false;
        auto *header = static_cast<ACE_HEADER *>(ace);
        auto append_with = [&](PSID sid) {
            std::vector<uint8_t> entry(8 + os.GetLengthSid(sid));
            std::memcpy(entry.data(), ace, 8);
            std::memcpy(entry.data() + 8, sid, entry.size() - 8);
            reinterpret_cast<ACE_HEADER *>(entry.data())->AceSize = static_cast<WORD>(entry.size());
            return os.AddAce(fresh, ACL_REVISION_DS, MAXDWORD, entry.data(),
                             static_cast<DWORD>(entry.size())) != FALSE;
        };
        bool ok;
        if (i == at && !copy) {
            ok = append_with(put);
        } else {
            ok = os.AddAce(fresh, ACL_REVISION_DS, MAXDWORD, ace, header->AceSize) != FALSE;
            if (ok && i == at) ok = append_with(put);
        }
        if (!ok) return false;
    }
    storage = std::move(built);
    return true;
}

// What a rule makes of one explicit entry: nothing (mode 0), or remove,
// replace or copy it with the trustee put.
struct EntryEdit {
    uint32_t mode = 0;
    PSID put = nullptr;
    LocalBlock ownedPut;  // when the trustee to put was resolved for this entry
    uint32_t status = kOk;
};

// Walks the explicit entries of a list (inherited ones belong to the parent
// and are passed over, as are object-specific entries, whose SID has no
// fixed place) and applies what decide(sid) says: a removed entry leaves
// the walk at the same index; a replaced or copied one rebuilds the list
// into storage, a copy standing right behind its original.
template <typename Decide>
uint32_t edit_explicit_entries(Engine &engine, PACL &list, std::vector<uint8_t> &storage,
                               Decide decide) {
    if (!list) return kOk;
    for (DWORD i = 0;;) {
        ACL_SIZE_INFORMATION size{};
        if (!os.GetAclInformation(list, &size, sizeof size, AclSizeInformation))
            return engine.fail(kAclUnreadable);
        if (i >= size.AceCount) return kOk;
        void *ace = nullptr;
        if (!os.GetAce(list, i, &ace)) return engine.fail(kAclUnreadable);
        auto *header = static_cast<ACE_HEADER *>(ace);
        if ((header->AceFlags & kAceInherited) || header->AceType > SYSTEM_ALARM_ACE_TYPE) {
            ++i;
            continue;
        }
        EntryEdit edit = decide(PSID(&reinterpret_cast<ACCESS_ALLOWED_ACE *>(ace)->SidStart));
        if (edit.status != kOk) return edit.status;
        if (edit.mode == kRuleRemove) {
            if (!os.DeleteAce(list, i)) return engine.fail(kAceNotDeleted);
            continue;  // the next entry moved into this index
        }
        if (edit.mode != kRuleReplace && edit.mode != kRuleCopy) {
            ++i;
            continue;
        }
        if (!edit.put) return kNoMemory;
        const bool copy = edit.mode == kRuleCopy;
        std::vector<uint8_t> rebuilt;
        if (!rebuild_list(list, i, edit.put, copy, rebuilt)) return engine.fail(kAclUnreadable);
        storage = std::move(rebuilt);
        list = reinterpret_cast<PACL>(storage.data());
        i += copy ? 2 : 1;
    }
}

// Trustee rules on one list: the first rule for this list whose trustee to
// find is the entry's trustee decides.
uint32_t apply_trustee_rules(Engine &engine, PACL &list, std::vector<uint8_t> &storage,
                             bool forSacl) {
    const AclCommand &c = engine.command;
    if (!(forSacl ? c.trusteeRulesSacl : c.trusteeRulesDacl)) return kOk;
    return edit_explicit_entries(engine, list, storage, [&](PSID sid) {
        EntryEdit edit;
        for (size_t rule = 0; rule < engine.trusteeRuleSids.size(); ++rule) {
            PSID find = engine.trusteeRuleSids[rule].find.get();
            if (!find || !os.EqualSid(find, sid)) continue;
            if (rule >= c.trusteeRules.size()) {
                edit.status = kNoMemory;
            } else {
                edit.mode = c.trusteeRules[rule].mode;
                edit.put = engine.trusteeRuleSids[rule].put.get();
            }
            break;
        }
        return edit;
    });
}

// Domain rules on one list, by analogy with the trustee rules: an explicit
// entry whose account belongs to the domain to find is removed, or its
// trustee becomes the account of the same name in the domain to put.
uint32_t apply_domain_rules(Engine &engine, PACL &list, std::vector<uint8_t> &storage,
                            bool forSacl) {
    const AclCommand &c = engine.command;
    if (!(forSacl ? c.domainRulesSacl : c.domainRulesDacl)) return kOk;
    return edit_explicit_entries(engine, list, storage, [&](PSID sid) {
        EntryEdit edit;
        char name[260], domain[260];
        DWORD nameSize = sizeof name, domainSize = sizeof domain;
        SID_NAME_USE use;
        if (!os.LookupAccountSidA(nullptr, sid, name, &nameSize, domain, &domainSize, &use))
            return edit;
        for (size_t rule = 0; rule < c.domainRules.size() && rule < engine.domainNames.size();
             ++rule) {
            if (!equals_ignoring_case(domain, engine.domainNames[rule])) continue;
            edit.mode = c.domainRules[rule].mode;
            if (edit.mode != kRuleRemove) {
                edit.status = resolve_trustee(
                    engine, TrusteeName{c.domainRules[rule].put + "\\" + name, false},
                    edit.ownedPut);
                edit.put = edit.ownedPut.get();
                if (edit.status == kOk && !edit.put) edit.status = kTrusteeUnresolved;
            }
            break;
        }
        return edit;
    });
}

// Merges the ACE requests recorded for one list into it.
uint32_t merge_requests(Engine &engine, uint32_t listKind, PACL &list, LocalBlock &edited) {
    const AclCommand &c = engine.command;
    std::vector<EXPLICIT_ACCESS_A> entries;
    for (size_t i = 0; i < c.aces.size() && i < engine.aceSids.size(); ++i) {
        const AceRequest &r = c.aces[i];
        if (r.list != listKind) continue;
        EXPLICIT_ACCESS_A e{};
        e.grfAccessPermissions = r.mask;
        e.grfAccessMode = static_cast<ACCESS_MODE>(r.accessMode);
        e.grfInheritance = r.inheritance;  // the language's bits are the ACE flags
        e.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        e.Trustee.TrusteeType = TRUSTEE_IS_UNKNOWN;
        e.Trustee.ptstrName = static_cast<LPSTR>(engine.aceSids[i].get());
        entries.push_back(e);
    }
    const uint32_t expected = listKind == kListDacl ? c.daclEntryCount : c.saclEntryCount;
    if (entries.size() != expected) return kAceCountMismatch;
    if (entries.empty()) return kOk;
    RuntimeLibrary advapi("Advapi32.dll");
    auto setEntries = advapi.get<decltype(&::SetEntriesInAclA)>("SetEntriesInAclA");
    if (!setEntries) return kLibraryMissing;
    PACL merged = nullptr;
    const DWORD result =
        setEntries(static_cast<ULONG>(entries.size()), entries.data(), list, &merged);
    if (result != ERROR_SUCCESS) return engine.fail(kSetEntriesFailed, result);
    edited.reset(merged);
    list = merged;
    return kOk;
}

// The single-object writer.
uint32_t write_descriptor(Engine &engine, const std::string &name, uint32_t type,
                          SECURITY_INFORMATION bits, PSID owner, PSID group, PACL dacl,
                          PACL sacl) {
    if ((bits & kInfoOwner) && switch_privilege("SeTakeOwnershipPrivilege", true) != kOk)
        return engine.fail(kPrivilegeFailed);
    if ((bits & kInfoSacl) && switch_privilege("SeSecurityPrivilege", true) != kOk)
        return engine.fail(kPrivilegeFailed);
    if ((bits & kInfoDacl) && dacl && !os.IsValidAcl(dacl)) return kInvalidDacl;
    if ((bits & kInfoSacl) && sacl && !os.IsValidAcl(sacl)) return kInvalidSacl;
    if ((bits & kInfoOwner) && (!owner || !os.IsValidSid(owner))) return kInvalidOwner;
    if ((bits & kInfoGroup) && (!group || !os.IsValidSid(group))) return kInvalidGroup;
    RuntimeLibrary advapi("Advapi32.dll");
    auto set = advapi.get<decltype(&::SetNamedSecurityInfoA)>("SetNamedSecurityInfoA");
    if (!set) return kLibraryMissing;
    std::string object = name;
    auto write = [&] {
        return set(object.data(), static_cast<SE_OBJECT_TYPE>(type), bits, owner, group, dacl,
                   sacl);
    };
    DWORD result = write();
    if (result != ERROR_SUCCESS && type == kTypeFile) {
        probe_file(name, (bits & kInfoSacl) ? ACCESS_SYSTEM_SECURITY | WRITE_DAC | WRITE_OWNER
                                            : WRITE_DAC | WRITE_OWNER);
        result = write();
    }
    // The system's refusal to take a descriptor is reported like its
    // refusal to give one.
    if (result != ERROR_SUCCESS) return engine.fail(kNoDescriptor, result);
    return kOk;
}

}  // namespace

uint32_t list_object(Engine &engine, const std::string &name) {
    const AclCommand &c = engine.command;
    if (c.listParts == 0) return kListParameters;
    if (filtered_out(engine, name)) return kOk;
    RuntimeLibrary advapi("Advapi32.dll");
    if (!advapi.loaded()) return kLibraryMissing;
    auto toText = advapi.get<decltype(&::ConvertSecurityDescriptorToStringSecurityDescriptorA)>(
        "ConvertSecurityDescriptorToStringSecurityDescriptorA");
    if (!toText) return kNoMemory;

    const SECURITY_INFORMATION bits = security_information_from_parts(c.listParts);
    Descriptor d;
    bool absent = false;
    uint32_t status = read_descriptor(engine, name, c.objectType, bits, d, absent);
    if (status != kOk) {
        if (!c.ignoreErrors && status != kPassedOver) return status;
        engine.lastError = 0;
        return kOk;
    }
    if (absent) return kOk;

    std::string sddl;
    DescriptorView view;
    if (c.listFormat == kFormatSddl) {
        char *text = nullptr;
        if (!toText(d.selfRelative.get(), SDDL_REVISION_1, bits, &text, nullptr))
            return engine.fail(kDescriptorConversion);
        sddl = text;
        os.LocalFree(text);
    } else {
        view.control = d.control;
        view.hasOwner = d.ownerSid() != nullptr;
        view.hasGroup = d.groupSid() != nullptr;
        view.owner = sid_text(d.ownerSid());
        view.group = sid_text(d.groupSid());
        view.hasDacl = (d.control & SE_DACL_PRESENT) != 0;
        view.hasSacl = (d.control & SE_SACL_PRESENT) != 0;
        view.dacl = entries_of(d.daclList);
        view.sacl = entries_of(d.saclList);
    }
    const std::string record = list_record(c, name, c.objectType, sddl, view);
    if (record.empty()) return kOk;
    if (engine.listFile != INVALID_HANDLE_VALUE) {
        status = write_record_line(engine, record);
        if (status != kOk) return status;
    }
    if (record.size() + 1 <= kDescriptorTextSize) engine.descriptorText = record;
    return kOk;
}

namespace {

uint32_t restore_record(Engine &engine, const std::string &text,
                        decltype(&::ConvertStringSecurityDescriptorToSecurityDescriptorA) toSd) {
    RestoreRecord record;
    const RestoreParse parsed = parse_restore_record(text, record);
    if (parsed == RestoreParse::kNothing) return kOk;
    if (parsed != RestoreParse::kRecord) return kBadArgument;
    if (filtered_out(engine, record.objectName)) return kOk;
    const uint32_t bits = security_information_from_sddl(record.sddl);
    PSECURITY_DESCRIPTOR relative = nullptr;
    if (!toSd(record.sddl.c_str(), SDDL_REVISION_1, &relative, nullptr))
        return engine.fail(kDescriptorConversion);
    Descriptor d;
    d.selfRelative.reset(relative);
    uint32_t status = make_absolute(engine, relative, d);
    if (status != kOk) return status;
    return write_descriptor(engine, record.objectName, record.objectType, bits, d.ownerSid(),
                            d.groupSid(), d.daclList, d.saclList);
}

}  // namespace

// More than the records of a listing of a million objects.
constexpr size_t kRestoreFileMax = size_t(256) << 20;

uint32_t restore(Engine &engine) {
    const AclCommand &c = engine.command;
    if (c.fileName.empty()) return kRestoreNoFile;
    std::vector<std::string> records;
    if (begins_with_ignoring_case(c.fileName, "FromVOXAStruct")) {
        records = split_restore_text(engine.descriptorText);
    } else {
        UniqueFile in(os.CreateFileA(c.fileName.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                     OPEN_EXISTING, 0, nullptr));
        if (!in) return engine.fail(kFileNotOpened);
        std::string raw;
        char chunk[4096];
        DWORD done = 0;
        while (os.ReadFile(in.get(), chunk, sizeof chunk, &done, nullptr) && done) {
            // The file is read whole before any record is applied; a file
            // far larger than any listing (a swapped file, a device) must
            // not take all the memory first.
            if (raw.size() + done > kRestoreFileMax) return engine.fail(kFileNotOpened);
            raw.append(chunk, done);
        }
        records = split_restore_file(raw);
    }
    RuntimeLibrary advapi("Advapi32.dll");
    if (!advapi.loaded()) return kLibraryMissing;
    auto toSd = advapi.get<decltype(&::ConvertStringSecurityDescriptorToSecurityDescriptorA)>(
        "ConvertStringSecurityDescriptorToSecurityDescriptorA");
    if (!toSd) return kLibraryMissing;
    for (const std::string &text : records) {
        const uint32_t status = restore_record(engine, text, toSd);
        if (status != kOk && !c.ignoreErrors) return status;
    }
    return kOk;
}

uint32_t write_object(Engine &engine, const std::string &name) {
    const AclCommand &c = engine.command;
    // While permissions are reset, the starting object and everything whose
    // path begins with its name keep what they have.
    if (engine.resetInProgress &&
        begins_with_ignoring_case(without_trailing_backslash(name),
                                  without_trailing_backslash(c.objectName)))
        return kOk;
    if (filtered_out(engine, name)) return kOk;

    SECURITY_INFORMATION bits = 0;
    if ((c.actions & kActionAce) && c.daclEntryCount) bits |= kInfoDacl;
    if ((c.actions & kActionAce) && c.saclEntryCount) bits |= kInfoSacl;
    if ((c.actions & kActionSetOwner) && engine.ownerSid) bits |= kInfoOwner;
    if ((c.actions & kActionSetGroup) && engine.groupSid) bits |= kInfoGroup;
    if (c.actions & kActionSetProtection) {
        if (c.daclProtection == kProtectionNotProtected) bits |= kInfoUnprotectedDacl | kInfoDacl;
        if (c.daclProtection == kProtectionProtectCopy || c.daclProtection == kProtectionProtectNoCopy)
            bits |= kInfoProtectedDacl | kInfoDacl;
        if (c.saclProtection == kProtectionNotProtected) bits |= kInfoUnprotectedSacl | kInfoSacl;
        if (c.saclProtection == kProtectionProtectCopy || c.saclProtection == kProtectionProtectNoCopy)
            bits |= kInfoProtectedSacl | kInfoSacl;
    }
    if (c.actions & kActionClearDacl) bits |= kInfoDacl;
    if (c.actions & kActionClearSacl) bits |= kInfoSacl;
    if (c.actions & kActionTrustee) {
        if (c.trusteeRulesDacl) bits |= kInfoDacl;
        if (c.trusteeRulesSacl) bits |= kInfoSacl;
    }
    if (c.actions & kActionDomain) {
        if (c.domainRulesDacl) bits |= kInfoDacl;
        if (c.domainRulesSacl) bits |= kInfoSacl;
    }
    if (bits == 0) return kOk;

    Descriptor d;
    bool absent = false;
    uint32_t status = read_descriptor(engine, name, c.objectType,
                                      bits & (kInfoOwner | kInfoGroup | kInfoDacl | kInfoSacl), d,
                                      absent);
    if (status != kOk) return status;

    if (c.daclProtection == kProtectionProtectNoCopy &&
        (status = filter_entries(engine, d.daclList, kAceInherited, true)) != kOk)
        return status;
    if (c.saclProtection == kProtectionProtectNoCopy &&
        (status = filter_entries(engine, d.saclList, kAceInherited, true)) != kOk)
        return status;
    if ((c.actions & kActionClearDacl) &&
        (status = filter_entries(engine, d.daclList, kAceInherited, false)) != kOk)
        return status;
    if ((c.actions & kActionClearSacl) &&
        (status = filter_entries(engine, d.saclList, kAceInherited, false)) != kOk)
        return status;
    if (c.actions & kActionTrustee) {
        if ((status = apply_trustee_rules(engine, d.daclList, d.rebuiltDacl, false)) != kOk ||
            (status = apply_trustee_rules(engine, d.saclList, d.rebuiltSacl, true)) != kOk)
            return status;
    }
    if (c.actions & kActionDomain) {
        if ((status = apply_domain_rules(engine, d.daclList, d.rebuiltDacl, false)) != kOk ||
            (status = apply_domain_rules(engine, d.saclList, d.rebuiltSacl, true)) != kOk)
            return status;
    }
    if (c.actions & kActionAce) {
        if ((status = merge_requests(engine, kListDacl, d.daclList, d.editedDacl)) != kOk ||
            (status = merge_requests(engine, kListSacl, d.saclList, d.editedSacl)) != kOk)
            return status;
    }
    status = write_descriptor(engine, name, c.objectType, bits, engine.ownerSid.get(),
                              engine.groupSid.get(), d.daclList, d.saclList);
    if (status != kOk && (engine.lastError == ERROR_ACCESS_DENIED || c.ignoreErrors ||
                          status == kPassedOver))
        return kOk;
    return status;
}

}  // namespace vxio::acl
