// The running side of the security-descriptor command engine: one Engine
// per call of VOXA_ACLs_ExecCommand, holding the parsed command and what
// running it needs (resolved SIDs, the caller's text, the listing file).
#pragma once

#include <string>
#include <vector>

#include "acl/command.h"
#include "platform/os.h"
#include "util/owner.h"

namespace vxio::acl {

namespace detail {
inline void local_free(void *p) noexcept { platform::os.LocalFree(p); }
}  // namespace detail

// Memory from LocalAlloc (SIDs, descriptors returned by the system).
using LocalBlock = UniqueResource<void *, detail::local_free, 0>;

struct ResolvedRule {
    LocalBlock find;
    LocalBlock put;
};

struct Engine {
    AclCommand command;
    std::string serverName;  // for "\\server\share\..." object names
    uint32_t lastError = 0;  // last system error seen while running
    std::string descriptorText;  // the caller's text in, the listing out
    HANDLE listFile = INVALID_HANDLE_VALUE;  // "List" output, while listing
    bool resetInProgress = false;

    std::vector<LocalBlock> aceSids;  // one per command.aces entry
    std::vector<ResolvedRule> trusteeRuleSids;
    LocalBlock ownerSid;
    LocalBlock groupSid;
    std::vector<std::string> domainNames;  // resolved domain of each domain rule

    ~Engine();
    // Records the thread's last error (or the given code) and returns status.
    uint32_t fail(uint32_t status, DWORD error);
    uint32_t fail(uint32_t status);
};

// Parses and runs one command with the caller's buffer; the engine's status
// (the export reduces it to true/false).
uint32_t execute_command(const char *command, char *text, uint32_t textSize);

// Privileges of the process token.
uint32_t switch_privilege(const char *name, bool on);
void switch_engine_privileges_off();

// Trustees and domains (resolution of the names the command gives).
uint32_t resolve_trustee(Engine &engine, const TrusteeName &trustee, LocalBlock &sid);
uint32_t resolve_all_trustees(Engine &engine);
uint32_t resolve_domains(Engine &engine);

// Objects: names, registry keys, walks and filters.
uint32_t set_object(Engine &engine, std::string &name);
uint32_t open_registry_key(const std::string &name, UniqueKey &key);
bool filtered_out(const Engine &engine, const std::string &path);
enum class Purpose { List, Write };
uint32_t walk_files(Engine &engine, const std::string &path, Purpose purpose);
uint32_t walk_registry(Engine &engine, const std::string &keyName, Purpose purpose);

// Descriptors: listing, restoring, writing.
uint32_t list_object(Engine &engine, const std::string &name);
uint32_t restore(Engine &engine);
uint32_t write_object(Engine &engine, const std::string &name);
uint32_t process_object(Engine &engine, const std::string &name, Purpose purpose);

}  // namespace vxio::acl
