// Trustees and domains named by a command, resolved to SIDs and domain
// names. String SIDs and the domain functions are looked up by name at each
// use ("Advapi32.dll", "Netapi32.dll").
#include "acl/engine.h"
#include "acl/text.h"
#include "platform/library.h"

#include <dsgetdc.h>
#include <dsrole.h>
#include <lm.h>
#include <sddl.h>

#include <cstring>

namespace vxio::acl {

using platform::os;
using platform::RuntimeLibrary;

namespace {

// The controller of a domain, as the account lookup wants it ("\\" taken
// off), and the domain's own name when that controller says it is one.
uint32_t find_controller(const std::string &domain, std::string &system, std::string *flatName) {
    RuntimeLibrary netapi("Netapi32.dll");
    auto getDc = netapi.get<decltype(&::DsGetDcNameA)>("DsGetDcNameA");
    auto role = netapi.get<decltype(&::DsRoleGetPrimaryDomainInformation)>(
        "DsRoleGetPrimaryDomainInformation");
    auto bufferFree = netapi.get<decltype(&::NetApiBufferFree)>("NetApiBufferFree");
    auto roleFree = netapi.get<decltype(&::DsRoleFreeMemory)>("DsRoleFreeMemory");
    if (!getDc || !role || !bufferFree || !roleFree) return kLibraryMissing;

    PDOMAIN_CONTROLLER_INFOA info = nullptr;
    if (domain.empty() ||
        getDc(nullptr, domain.c_str(), nullptr, nullptr, DS_RETURN_FLAT_NAME, &info) !=
            ERROR_SUCCESS || !info)
        return kDomainLookup;
    const char *controller = info->DomainControllerName ? info->DomainControllerName : "";
    if (controller[0] == '\\' && controller[1] == '\\') controller += 2;
    system = controller;
    std::string domainName = info->DomainName ? info->DomainName : "";

    // A controller names its own domain; for other roles keep what the
    // lookup said.
    PDSROLE_PRIMARY_DOMAIN_INFO_BASIC basic = nullptr;
    std::wstring wideSystem(system.begin(), system.end());
    if (role(wideSystem.c_str(), DsRolePrimaryDomainInfoBasic,
             reinterpret_cast<PBYTE *>(&basic)) == ERROR_SUCCESS && basic) {
        if (basic->MachineRole == DsRole_RoleBackupDomainController ||
            basic->MachineRole == DsRole_RolePrimaryDomainController) {
            if (basic->DomainNameFlat) {
                char flat[260] = {};
                os.WideCharToMultiByte(CP_ACP, 0, basic->DomainNameFlat, -1, flat, sizeof flat,
                                    nullptr, nullptr);
                domainName = flat;
            }
        }
        roleFree(basic);
    }
    bufferFree(info);
    if (flatName) *flatName = domainName;
    return kOk;
}

}  // namespace

uint32_t resolve_trustee(Engine &engine, const TrusteeName &trustee, LocalBlock &sid) {
    sid.reset();
    if (trustee.name.empty()) return kOk;  // nothing to resolve
    if (trustee.isSid) {
        RuntimeLibrary advapi("Advapi32.dll");
        auto convert = advapi.get<decltype(&::ConvertStringSidToSidA)>("ConvertStringSidToSidA");
        if (!convert) return kLibraryMissing;
        PSID converted = nullptr;
        if (!convert(trustee.name.c_str(), &converted)) return engine.fail(kTrusteeUnresolved);
        sid.reset(converted);
        return kOk;
    }

    // "DOMAIN\account" is looked up on that domain's controller, "account"
    // on this system.
    std::string domain, account = trustee.name, system;
    const size_t slash = trustee.name.find('\\');
    if (slash != std::string::npos) {
        domain = trustee.name.substr(0, slash);
        account = trustee.name.substr(slash + 1);
        const uint32_t found = find_controller(domain, system, nullptr);
        if (found == kLibraryMissing) return found;
        if (found != kOk) return kTrusteeUnresolved;
    }
    const char *on = system.empty() ? nullptr : system.c_str();
    // First ask for the sizes, then look up into blocks of those sizes.
    DWORD sidSize = 0, domainSize = 0;
    SID_NAME_USE use;
    os.LookupAccountNameA(on, account.c_str(), nullptr, &sidSize, nullptr, &domainSize, &use);
    if (sidSize == 0) return engine.fail(kTrusteeUnresolved);
    LocalBlock block(os.LocalAlloc(LMEM_FIXED, sidSize));
    if (!block) return kNoMemory;
    std::string foundDomain(domainSize + 1, '\0');
    domainSize = static_cast<DWORD>(foundDomain.size());
    if (!os.LookupAccountNameA(on, account.c_str(), block.get(), &sidSize, foundDomain.data(),
                               &domainSize, &use))
        return engine.fail(kTrusteeUnresolved);
    foundDomain.resize(std::strlen(foundDomain.c_str()));
    if (!domain.empty() && !equals_ignoring_case(foundDomain, domain)) return kTrusteeUnresolved;
    sid = std::move(block);
    return kOk;
}

uint32_t resolve_all_trustees(Engine &engine) {
    AclCommand &c = engine.command;
    engine.aceSids.clear();
    for (const AceRequest &ace : c.aces) {
        LocalBlock sid;
        const uint32_t status = resolve_trustee(engine, ace.trustee, sid);
        if (status != kOk) return status == kLibraryMissing ? status : kTrusteeUnresolved;
        engine.aceSids.push_back(std::move(sid));
    }
    engine.trusteeRuleSids.clear();
    for (const TrusteeRule &rule : c.trusteeRules) {
        ResolvedRule resolved;
        uint32_t status = resolve_trustee(engine, rule.find, resolved.find);
        if (status == kOk) status = resolve_trustee(engine, rule.put, resolved.put);
        if (status != kOk) return status == kLibraryMissing ? status : kTrusteeUnresolved;
        engine.trusteeRuleSids.push_back(std::move(resolved));
    }
    for (auto [name, sid] : {std::pair<const TrusteeName *, LocalBlock *>{&c.owner, &engine.ownerSid},
                             {&c.group, &engine.groupSid}}) {
        const uint32_t status = resolve_trustee(engine, *name, *sid);
        if (status != kOk) return status == kLibraryMissing ? status : kTrusteeUnresolved;
    }
    return kOk;
}

uint32_t resolve_domains(Engine &engine) {
    engine.domainNames.clear();
    for (const DomainRule &rule : engine.command.domainRules) {
        std::string system, name;
        const uint32_t status = find_controller(rule.find, system, &name);
        if (status != kOk) return status;
        if (name.size() > kMaxName) name.resize(kMaxName);
        engine.domainNames.push_back(name);
    }
    return kOk;
}

}  // namespace vxio::acl
