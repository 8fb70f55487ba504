#include "os/os_internal.h"
#include "os/os_volume_internal.h"
#include "os/os_win32.h"

#include <winioctl.h>

namespace findwright {

static HANDLE _os_handle(os_volume_t *volume) {
    return reinterpret_cast<HANDLE>(volume->handle);
}

static i64 _os_handle_read(os_volume_t *volume, u64 offset, void *bytes, u32 size) {
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD taken = 0;
    if (ReadFile(_os_handle(volume), bytes, size, &taken, &at))
        return taken;
    return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
}

static void _os_handle_close(os_volume_t *volume) {
    CloseHandle(_os_handle(volume));
}

// No driver behind the handle knows the request: a file, or a system that has no such drivers.
static bool _os_is_unsupported(DWORD error) {
    return error == ERROR_INVALID_PARAMETER || error == ERROR_NOT_SUPPORTED ||
           error == ERROR_INVALID_FUNCTION || error == ERROR_CALL_NOT_IMPLEMENTED;
}

static bool _os_device_get_sector_size(os_volume_t *volume, u32 *sector_size, u32 *error) {
    DISK_GEOMETRY geometry;
    DWORD taken = 0;
    *sector_size = OS_DEFAULT_SECTOR_SIZE;
    *error = 0;
    if (DeviceIoControl(_os_handle(volume), IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry,
                        sizeof(geometry), &taken, nullptr)) {
        if (geometry.BytesPerSector)
            *sector_size = geometry.BytesPerSector;
        return true;
    }
    *error = GetLastError();
    if (*error != ERROR_INVALID_PARAMETER && *error != ERROR_NOT_SUPPORTED)
        return false;
    *error = 0;
    return true;
}

static bool _os_device_get_ntfs_data(os_volume_t *volume, os_ntfs_volume_data_t *data, bool *supported) {
    NTFS_VOLUME_DATA_BUFFER buffer;
    DWORD taken = 0;
    if (!DeviceIoControl(_os_handle(volume), FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &buffer, sizeof(buffer),
                         &taken, nullptr)) {
        *supported = !_os_is_unsupported(GetLastError());
        return false;
    }
    *data = {buffer.BytesPerCluster, buffer.BytesPerFileRecordSegment};
    return true;
}

static bool _os_device_get_ntfs_record(os_volume_t *volume, u64 index, u64 *reference, void *record, u32 size,
                                       bool *supported) {
    constexpr u32 HEADER = offsetof(NTFS_FILE_RECORD_OUTPUT_BUFFER, FileRecordBuffer);
    constexpr u32 LARGEST_RECORD = 4096;
    alignas(8) char output[HEADER + LARGEST_RECORD];
    NTFS_FILE_RECORD_INPUT_BUFFER input;
    input.FileReferenceNumber.QuadPart = static_cast<LONGLONG>(index);
    DWORD taken = 0;
    if (!DeviceIoControl(_os_handle(volume), FSCTL_GET_NTFS_FILE_RECORD, &input, sizeof(input), output,
                         sizeof(output), &taken, nullptr)) {
        *supported = !_os_is_unsupported(GetLastError());
        return false;
    }
    NTFS_FILE_RECORD_OUTPUT_BUFFER head;
    if (taken < HEADER)
        return false;
    std::memcpy(&head, output, HEADER);
    u32 length = head.FileRecordLength < taken - HEADER ? head.FileRecordLength : taken - HEADER;
    *reference = static_cast<u64>(head.FileReferenceNumber.QuadPart);
    std::memcpy(record, output + HEADER, length < size ? length : size);
    return true;
}

// A file's handle reaches the driver of the volume that holds the file, which would answer for that volume:
// so an image asks nothing.
static const os_volume_ops_t _os_image_ops = {_os_handle_read, _os_handle_close, nullptr, nullptr, nullptr};
static const os_volume_ops_t _os_device_ops = {_os_handle_read, _os_handle_close, _os_device_get_sector_size,
                                               _os_device_get_ntfs_data, _os_device_get_ntfs_record};

// Whether a name says that a device is meant: `\\.\X:`, `\\?\Volume{...}`, and no path on it.
static bool _os_is_device_name(const char *name, u32 length) {
    constexpr u32 PREFIX = 4;
    if (length < PREFIX ||
        (std::memcmp(name, "\\\\.\\", PREFIX) != 0 && std::memcmp(name, "\\\\?\\", PREFIX) != 0))
        return false;
    return !std::memchr(name + PREFIX, '\\', length - PREFIX);
}

// Each kind of handle answers another of these: a file, or what stands for a device under Wine, its size; a
// volume or disk its length.
static bool _os_ask_size(HANDLE handle, u64 *size) {
    LARGE_INTEGER file_size;
    GET_LENGTH_INFORMATION length;
    DWORD taken = 0;
    if (DeviceIoControl(handle, IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof(length), &taken,
                        nullptr)) {
        *size = static_cast<u64>(length.Length.QuadPart);
        return true;
    }
    *size = 0;
    if (!GetFileSizeEx(handle, &file_size) || file_size.QuadPart <= 0)
        return false;
    *size = static_cast<u64>(file_size.QuadPart);
    return true;
}

os_volume_t *os_volume_open(const char *name) {
    auto length = static_cast<u32>(std::strlen(name));
    if (length > 4 && name[length - 1] == '\\' && _os_is_device_name(name, length - 1))
        length--; // with the separator it would be the root folder
    os_wide_t wide(name, length);
    HANDLE handle =
        CreateFileW(wide.text(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return nullptr;
    BY_HANDLE_FILE_INFORMATION info;
    bool is_device = _os_is_device_name(name, length) || !GetFileInformationByHandle(handle, &info);
    os_volume_t *volume = os_volume_new(is_device ? &_os_device_ops : &_os_image_ops);
    volume->handle = reinterpret_cast<std::intptr_t>(handle);
    if (is_device) {
        volume->is_size_known = _os_ask_size(handle, &volume->size);
        u32 sector_size;
        u32 error;
        os_volume_get_sector_size(volume, &sector_size, &error);
        os_volume_set_alignment(volume, sector_size);
    } else {
        volume->is_size_known = true;
        volume->size = static_cast<u64>(info.nFileSizeHigh) << 32 | info.nFileSizeLow;
    }
    return volume;
}

} // namespace findwright
