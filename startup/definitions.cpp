// Definition records of the startup scan (see definitions.h): the lines of
// the definition text as StartupDefinition records in a DynArray.
#include "startup/definitions.h"

#include <cstring>
#include <vector>

#include "util/owner.h"

namespace vxio::startup {
namespace {

// A copy of text in a block of its own; an empty or null text stays null.
// False only when the copy cannot be made.
bool copy_text(const char *text, char *&field) noexcept {
    if (!text || !*text) return true;
    field = zelta_strdup(text);
    return field != nullptr;
}

}  // namespace

HKEY RootKey(Root root) {
    switch (root) {
    case Root::ClassesRoot:
        return HKEY_CLASSES_ROOT;
    case Root::CurrentUser:
        return HKEY_CURRENT_USER;
    case Root::LocalMachine:
        return HKEY_LOCAL_MACHINE;
    case Root::Users:
        return HKEY_USERS;
    case Root::PerformanceData:
        return HKEY_PERFORMANCE_DATA;
    case Root::DynData:
        return HKEY_DYN_DATA;
    case Root::CurrentConfig:
        return HKEY_CURRENT_CONFIG;
    case Root::None:
        break;
    }
    return nullptr;
}

StartupDefinition *NewStartupRecord(uint32_t id, const char *label, int32_t number, HKEY root,
                                    uint32_t view, const char *key, uint32_t mode,
                                    const char *name, uint32_t action, const char *data) noexcept {
    // A zero-filled record of the size this build lays it out in: 80 bytes
    // with 64-bit pointers (the engine's 32-bit build had 64).
    auto *record = static_cast<StartupDefinition *>(ZELTA_mymalloc(sizeof(StartupDefinition)));
    if (!record) return nullptr;
    std::memset(record, 0, sizeof(StartupDefinition));
    record->id = id;
    record->number = number;
    record->root = root;
    record->view = view;
    record->mode = mode;
    record->action = action;
    if (!copy_text(label, record->label) || !copy_text(key, record->key) ||
        !copy_text(name, record->name) || !copy_text(data, record->data)) {
        FreeStartupRecord(record);
        return nullptr;
    }
    return record;
}

void FreeStartupRecord(StartupDefinition *record) noexcept {
    if (!record) return;
    for (char *text : {record->label, record->key, record->name, record->data})
        if (text) ZELTA_myfree(text);
    ZELTA_myfree(record);
}

int ParseStartupDefinitions(DynArray *list, const char *text, size_t length) noexcept {
    if (!list || !text || length == 0 || text[0] == '\0') return kParseFormat;
    // The text is read from a terminated copy of its own, as the engine
    // has always done: failing to make that copy is this call's one "out
    // of memory" (-5).
    if (length == SIZE_MAX) return kParseNoMemory;
    ZeltaPtr<char> copy(static_cast<char *>(ZELTA_mymalloc(length + 1)));
    if (!copy) return kParseNoMemory;
    std::memcpy(copy.get(), text, length);
    copy.get()[length] = '\0';

    std::vector<DefinitionLine> lines;
    int status = kParseNoMemory;
    try {
        status = ParseDefinitionText(copy.get(), length, lines);
    } catch (...) {
        // ParseDefinitionText reports its own failures; nothing else throws.
    }
    // The lines read before a format error become records too: they stay
    // in the list for the caller to free, as the engine expects. A record
    // that cannot be made ends the parse as a format error (-1), the
    // engine's answer for it; the records before it stay as well.
    for (const DefinitionLine &line : lines) {
        StartupDefinition *record =
            NewStartupRecord(line.id, line.label.c_str(), line.number, RootKey(line.root), 0,
                             line.key.c_str(), line.mode, line.name.c_str(), line.action,
                             line.data.c_str());
        if (!record) return kParseFormat;
        if (!VOXA_arrAdd(list, record)) {
            FreeStartupRecord(record);
            return kParseFormat;
        }
    }
    return status;
}

int FreeStartupDefinitions(DynArray *list) noexcept {
    if (!list) return 1;
    for (uint32_t i = 0; i < list->count; ++i) {
        auto *record = static_cast<StartupDefinition *>(list->items[i]);
        if (!record) continue;
        for (char *text : {record->label, record->key, record->name, record->data})
            if (text) ZELTA_myfree(text);
    }
    VOXA_arrFree(list, 1);
    return 1;
}

}  // namespace vxio::startup
