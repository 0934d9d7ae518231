#include "io/storage_answers.h"

namespace vxio::io::storage {

const char *const kEntryNames[kEntryCount] = {
    "SpecialIO_Open",       "SpecialIO_Create",     "SpecialIO_Close",
    "SpecialIO_FileLength", "SpecialIO_Read",       "SpecialIO_Write",
    "SpecialIO_Write_at",   "SpecialIO_DeleteFile", "SpecialIO_ChangeSize",
    "SpecialIO_EnableWrite", "SpecialIO_Exists",
};

bool ServesObjects(const void *const *slots, size_t count) {
    return slots && count == kEntryCount && slots[kOpen] && slots[kClose] &&
           slots[kFileLength] && slots[kRead];
}

bool MayAskExists(const void *const *slots, size_t count) {
    return slots && count == kEntryCount && slots[kChangeSize] && slots[kExists];
}

bool TakeHandle(uintptr_t answer, uintptr_t *handle) {
    if (!answer || !handle) return false;
    *handle = answer;
    return true;
}

}  // namespace vxio::io::storage
