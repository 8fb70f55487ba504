#include "base/mem.h"
#include "index/ntfs_volume.h"
#include "os/os_win32.h"

#include <iterator>

namespace findwright {

static_assert(NTFS_VOLUME_REMOVABLE == DRIVE_REMOVABLE && NTFS_VOLUME_FIXED == DRIVE_FIXED &&
              NTFS_VOLUME_RAM_DISK == DRIVE_RAMDISK);
static_assert(NTFS_VOLUME_MORE_DATA == ERROR_MORE_DATA &&
              NTFS_VOLUME_NOT_IMPLEMENTED == ERROR_CALL_NOT_IMPLEMENTED &&
              NTFS_VOLUME_NO_ERROR_DIALOGS == SEM_FAILCRITICALERRORS);

// UTF-16 units of a name, with its terminator.
static constexpr u32 NAME_SIZE = 260;
using _name_t = wchar_t[NAME_SIZE];

// Hands on what a call wrote, up to its terminator, and the call's outcome as an error number. A call that
// fails without a number failed all the same.
static u32 _ntfs_volume_give(utf8_buf_t *out, const wchar_t *name, bool done) {
    const u32 error = done ? 0 : GetLastError();
    utf8_buf_copy_wchar(out, reinterpret_cast<const char16_t *>(name),
                        done ? static_cast<u32>(wcsnlen(name, NAME_SIZE)) : 0);
    return done || error ? error : ERROR_GEN_FAILURE;
}

static HANDLE _ntfs_volume_handle(std::intptr_t find) {
    return reinterpret_cast<HANDLE>(find);
}

static std::intptr_t _ntfs_volume_find_first(utf8_buf_t *volume) {
    _name_t name;
    HANDLE find = os_optional.FindFirstVolumeW(name, NAME_SIZE);
    _ntfs_volume_give(volume, name, find != INVALID_HANDLE_VALUE);
    return reinterpret_cast<std::intptr_t>(find);
}

static bool _ntfs_volume_find_next(std::intptr_t find, utf8_buf_t *volume) {
    _name_t name;
    const bool done = os_optional.FindNextVolumeW(_ntfs_volume_handle(find), name, NAME_SIZE);
    return !_ntfs_volume_give(volume, name, done);
}

static void _ntfs_volume_find_close(std::intptr_t find) {
    os_optional.FindVolumeClose(_ntfs_volume_handle(find));
}

static u32 _ntfs_volume_get_path_names(const char *volume, u32 *length, utf8_buf_t *names) {
    const os_wide_t wide(volume);
    wchar_t *text = names ? static_cast<wchar_t *>(mem_alloc(*length * sizeof(wchar_t))) : nullptr;
    DWORD taken = 0;
    u32 error = 0;
    if (!os_optional.GetVolumePathNamesForVolumeNameW(wide.text(), text, names ? *length : 0, &taken)) {
        error = GetLastError();
        error = error ? error : ERROR_GEN_FAILURE;
    }
    if (names) {
        const u32 filled = taken < *length ? taken : *length;
        utf8_buf_copy_wchar(names, reinterpret_cast<const char16_t *>(text), error ? 0 : filled);
        mem_free(text);
    }
    *length = taken;
    return error;
}

static u32 _ntfs_volume_get_volume_name(const char *root, utf8_buf_t *volume) {
    const os_wide_t wide(root);
    _name_t name;
    const bool done = os_optional.GetVolumeNameForVolumeMountPointW(wide.text(), name, NAME_SIZE);
    return _ntfs_volume_give(volume, name, done);
}

static std::intptr_t _ntfs_volume_find_first_mount_point(const char *root, utf8_buf_t *folder) {
    const os_wide_t wide(root);
    _name_t name;
    HANDLE find = os_optional.FindFirstVolumeMountPointW(wide.text(), name, NAME_SIZE);
    _ntfs_volume_give(folder, name, find != INVALID_HANDLE_VALUE);
    return reinterpret_cast<std::intptr_t>(find);
}

static bool _ntfs_volume_find_next_mount_point(std::intptr_t find, utf8_buf_t *folder) {
    _name_t name;
    const bool done = os_optional.FindNextVolumeMountPointW(_ntfs_volume_handle(find), name, NAME_SIZE);
    return !_ntfs_volume_give(folder, name, done);
}

static void _ntfs_volume_find_mount_point_close(std::intptr_t find) {
    os_optional.FindVolumeMountPointClose(_ntfs_volume_handle(find));
}

// The system gives all meanings that the letter ever had, the present one first.
static u32 _ntfs_volume_query_dos_device(const char *drive, utf8_buf_t *target) {
    const os_wide_t wide(drive);
    _name_t name;
    return _ntfs_volume_give(target, name, QueryDosDeviceW(wide.text(), name, NAME_SIZE) != 0);
}

static u32 _ntfs_volume_get_drive_type(const char *root) {
    const os_wide_t wide(root);
    return GetDriveTypeW(wide.text());
}

static u32 _ntfs_volume_get_file_system(const char *root, utf8_buf_t *file_system) {
    const os_wide_t wide(root);
    _name_t name;
    const bool done =
        GetVolumeInformationW(wide.text(), nullptr, 0, nullptr, nullptr, nullptr, name, NAME_SIZE);
    return _ntfs_volume_give(file_system, name, done);
}

static u32 _ntfs_volume_set_error_mode(u32 mode) {
    return SetErrorMode(mode);
}

void ntfs_volume_get_system(ntfs_volume_system_t *system) {
    *system = {};
    if (os_optional.FindFirstVolumeW && os_optional.FindNextVolumeW && os_optional.FindVolumeClose) {
        system->find_first_volume = _ntfs_volume_find_first;
        system->find_next_volume = _ntfs_volume_find_next;
        system->find_volume_close = _ntfs_volume_find_close;
    }
    if (os_optional.GetVolumePathNamesForVolumeNameW)
        system->get_path_names = _ntfs_volume_get_path_names;
    if (os_optional.GetVolumeNameForVolumeMountPointW)
        system->get_volume_name = _ntfs_volume_get_volume_name;
    if (os_optional.FindFirstVolumeMountPointW && os_optional.FindNextVolumeMountPointW &&
        os_optional.FindVolumeMountPointClose) {
        system->find_first_mount_point = _ntfs_volume_find_first_mount_point;
        system->find_next_mount_point = _ntfs_volume_find_next_mount_point;
        system->find_mount_point_close = _ntfs_volume_find_mount_point_close;
    }
    system->query_dos_device = _ntfs_volume_query_dos_device;
    system->get_drive_type = _ntfs_volume_get_drive_type;
    system->get_file_system = _ntfs_volume_get_file_system;
    system->set_error_mode = _ntfs_volume_set_error_mode;
}

} // namespace findwright
