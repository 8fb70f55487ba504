// The list of NTFS volumes, made of settings and of systems that a script describes.
#include "index/ntfs_volume.h"

#include "os/os_test_support.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace findwright {
namespace {

using namespace std::string_literals;

constexpr u32 REMOVABLE = 2, FIXED = 3, NETWORK = 4, CD_ROM = 5, RAM_DISK = 6;

std::string volume_name(const std::string &id) {
    return "\\\\?\\Volume{" + id + "}\\";
}

// --- A system that a script describes ----------------------------------------------------------------------

struct script_t {
    std::vector<std::string> volumes; // ids, in the order of the search
    std::map<std::string, std::vector<std::string>> paths, mount_points;
    std::map<std::string, u32> types; // by volume name or root
    std::map<std::string, std::string> file_systems, names, devices;
    u32 path_names_error = NTFS_VOLUME_MORE_DATA;
    u32 error_mode = 77;
    i32 open_searches = 0;
    size_t device_queries = 0;

    // A volume with its paths; a letter among them also has its device.
    script_t &add(const std::string &id, u32 type, const char *file_system,
                  const std::vector<std::string> &mounted) {
        volumes.push_back(id);
        types[volume_name(id)] = type;
        if (file_system)
            file_systems[volume_name(id)] = file_system;
        paths[volume_name(id)] = mounted;
        for (const std::string &path : mounted) {
            names[path] = volume_name(id);
            if (path.size() == 3)
                devices[path.substr(0, 2)] = "\\Device\\HarddiskVolume" + std::to_string(volumes.size());
            else
                mount_points[path.substr(0, 3)].push_back(path.substr(3));
        }
        return *this;
    }
    // A letter that no volume name belongs to.
    script_t &add_nameless(const std::string &drive, u32 type, const std::string &device) {
        devices[drive] = device;
        types["\\\\.\\" + drive + "\\"] = type;
        file_systems["\\\\.\\" + drive + "\\"] = "NTFS";
        return *this;
    }
};

script_t script;

u32 give(const std::map<std::string, std::string> &map, const std::string &key, u32 error, utf8_buf_t *out) {
    EXPECT_EQ(script.error_mode, NTFS_VOLUME_NO_ERROR_DIALOGS);
    const auto at = map.find(key);
    utf8_buf_copy_string(out, at == map.end() ? "" : at->second.c_str());
    return at == map.end() ? error : 0;
}

// What a search's handle points to.
struct search_t {
    std::vector<std::string> found;
    size_t next;
};

bool search_next(std::intptr_t find, utf8_buf_t *out) {
    auto *search = reinterpret_cast<search_t *>(find);
    if (search->next == search->found.size())
        return false;
    utf8_buf_copy_string(out, search->found[search->next++].c_str());
    return true;
}

std::intptr_t search_first(const std::vector<std::string> &found, utf8_buf_t *out) {
    if (found.empty())
        return NTFS_VOLUME_FIND_NONE;
    script.open_searches++;
    const auto find = reinterpret_cast<std::intptr_t>(new search_t{found, 0});
    search_next(find, out);
    return find;
}

void search_close(std::intptr_t find) {
    script.open_searches--;
    delete reinterpret_cast<search_t *>(find);
}

std::intptr_t find_first_volume(utf8_buf_t *volume) {
    std::vector<std::string> found;
    for (const std::string &id : script.volumes)
        found.push_back(volume_name(id));
    return search_first(found, volume);
}

std::intptr_t find_first_mount_point(const char *root, utf8_buf_t *folder) {
    return search_first(script.mount_points[root], folder);
}

u32 get_path_names(const char *volume, u32 *length, utf8_buf_t *names) {
    std::string text;
    for (const std::string &path : script.paths[volume])
        text += path + '\0';
    text += '\0';
    if (script.path_names_error != NTFS_VOLUME_MORE_DATA)
        return script.path_names_error;
    if (script.paths[volume].empty())
        return 0;
    if (!names || *length < text.size()) {
        *length = static_cast<u32>(text.size());
        return NTFS_VOLUME_MORE_DATA;
    }
    utf8_buf_copy_utf8(names, text.data(), static_cast<u32>(text.size()));
    return 0;
}

u32 get_drive_type(const char *root) {
    const auto at = script.types.find(root);
    return at == script.types.end() ? 1 : at->second;
}

const ntfs_volume_system_t scripted = {
    find_first_volume,
    search_next,
    search_close,
    get_path_names,
    [](const char *root, utf8_buf_t *volume) { return give(script.names, root, 4390, volume); },
    find_first_mount_point,
    search_next,
    search_close,
    [](const char *drive, utf8_buf_t *target) {
        script.device_queries++;
        return give(script.devices, drive, 2, target);
    },
    get_drive_type,
    [](const char *root, utf8_buf_t *name) { return give(script.file_systems, root, 21, name); },
    [](u32 mode) { return std::exchange(script.error_mode, mode); },
};

// --- Settings and lists as text ----------------------------------------------------------------------------

struct settings_t : ntfs_volume_settings_t {
    settings_t(std::vector<ntfs_volume_config_t> known = {}) : configs(std::move(known)) {
        auto_include_fixed_volumes = auto_remove_offline_ntfs_volumes = true;
        auto_include_removable_volumes = find_mount_points_on_removable_volumes = false;
    }
    const ntfs_volume_settings_t *get() {
        volumes = configs.data();
        volume_count = static_cast<u32>(configs.size());
        return this;
    }
    std::vector<ntfs_volume_config_t> configs;
};

// PATH|GUID|ROOT|FLAGS, with the id alone for a guid of the usual form: duplicate, found, include, monitor,
// recent changes, config, and the drive type.
std::string entry_text(const ntfs_volume_t *volume) {
    std::string guid = volume->guid;
    if (guid.rfind("\\\\?\\Volume{", 0) == 0)
        guid = guid.substr(11, guid.size() - 12);
    std::string text = volume->path + "|"s + guid + "|" + volume->root + "|";
    const std::pair<bool, char> flags[] = {{volume->duplicate, 'd'},
                                           {volume->found, 'f'},
                                           {volume->include, 'i'},
                                           {volume->monitor, 'm'},
                                           {volume->load_recent_changes, 'r'},
                                           {volume->from_config, 'c'}};
    for (const auto &[on, letter] : flags)
        text += on ? std::string(1, letter) : "";
    return text + std::to_string(volume->drive_type);
}

using texts_t = std::vector<std::string>;

texts_t list_texts(const ntfs_volume_list_t *list) {
    texts_t texts;
    const ntfs_volume_t *last = nullptr;
    for (const ntfs_volume_t *volume = list->first; volume; volume = volume->next) {
        EXPECT_EQ(ntfs_volume_find(list, volume->guid, volume->path, volume->root), volume);
        texts.push_back(entry_text(volume));
        last = volume;
    }
    EXPECT_EQ(list->last, last);
    EXPECT_EQ(list->count, texts.size());
    return texts;
}

texts_t make_list(const script_t &system, settings_t settings, bool apply_rules,
                  const ntfs_volume_system_t *calls = &scripted) {
    script = system;
    ntfs_volume_list_t *list = ntfs_volume_create_list_of(calls, settings.get(), apply_rules);
    EXPECT_EQ(list->apply_rules, apply_rules);
    const texts_t texts = list_texts(list);
    ntfs_volume_destroy_list(list);
    EXPECT_EQ(script.error_mode, 77u);
    EXPECT_EQ(script.open_searches, 0);
    return texts;
}

// Three volumes, one of them mounted twice, and what is no place for NTFS.
script_t usual_system() {
    script_t system;
    system.add("data", FIXED, "NTFS", {"D:\\", "C:\\mount\\data\\"});
    system.add("system", FIXED, "ntfs", {"C:\\"});
    system.add("hidden", FIXED, "NTFS", {});
    system.add("stick", REMOVABLE, "NTFS", {"E:\\", "E:\\deep\\"});
    system.add("ram", RAM_DISK, "NTFS", {"R:\\"});
    system.add("boot", FIXED, "FAT32", {"F:\\"});
    system.add("new", FIXED, "ntfsx", {"G:\\"});
    system.add("disc", CD_ROM, "NTFS", {"X:\\"});
    return system;
}

TEST(ntfs_volume, system_is_merged_with_settings) {
    const ntfs_volume_config_t old_c = {"\\\\?\\Volume{system}", "C:", nullptr, "C:\\a", true, true, false};
    const ntfs_volume_config_t moved = {"\\\\?\\Volume{data}", "Q:", "", "", true, false, true};
    const ntfs_volume_config_t moved_off = {"\\\\?\\Volume{data}", "P:", "", "", false, false, true};
    const ntfs_volume_config_t gone = {"\\\\?\\VOLUME{gone}", "H:", "", "", true, false, true};
    const ntfs_volume_config_t gone_letter = {"\\\\.\\I:", "I:", "", "", true, false, true};
    const ntfs_volume_config_t image = {"\\home\\u\\disk.img", "J:", "", "", true, false, false};
    const ntfs_volume_config_t off = {"\\\\?\\Volume{data}", "D:", "", "", false, false, true};
    const ntfs_volume_config_t stick = {"\\\\?\\Volume{stick}", "E:", "", "", true, false, true};
    const ntfs_volume_config_t rooted = {"\\\\?\\Volume{data}", "D:", "sub", "", true, false, true};
    const texts_t fresh = {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "R:|ram||fim6"};
    settings_t removable, manual, keep({gone, moved}), keep_manual({moved});
    removable.auto_include_removable_volumes = true;
    manual.auto_include_fixed_volumes = false;
    keep.auto_remove_offline_ntfs_volumes = false;
    keep_manual.auto_remove_offline_ntfs_volumes = keep_manual.auto_include_fixed_volumes = false;
    const struct {
        const char *what;
        settings_t settings;
        texts_t to_index, known;
    } rows[] = {
        {"nothing known",
         {},
         fresh,
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "E:|stick||fm2",
          "E:\\deep|stick||fm2", "R:|ram||fim6"}},
        {"removable volumes too",
         removable,
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "E:|stick||fim2",
          "E:\\deep|stick||fim2", "R:|ram||fim6"},
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "E:|stick||fim2",
          "E:\\deep|stick||fim2", "R:|ram||fim6"}},
        {"nothing by itself",
         manual,
         {},
         {"C:|system||fm3", "C:\\mount\\data|data||fm3", "D:|data||fm3", "E:|stick||fm2",
          "E:\\deep|stick||fm2", "R:|ram||fm6"}},
        {"settings of a known volume stay; a root is another volume; only chosen ones are indexed",
         {{old_c, off, stick, rooted}},
         {"C:|system||firc3", "C:\\mount\\data|data||fim3", "E:|stick||fimc2", "R:|ram||fim6"},
         {"C:|system||firc3", "C:\\mount\\data|data||fim3", "D:|data||fmc3", "E:|stick||fimc2",
          "E:\\deep|stick||fm2", "R:|ram||fim6"}},
        {"what is gone, and what the system does not know of",
         {{gone, moved, gone_letter, image, moved_off}},
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "J:|\\home\\u\\disk.img||ic0",
          "R:|ram||fim6"},
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "E:|stick||fm2",
          "E:\\deep|stick||fm2", "J:|\\home\\u\\disk.img||ic0", "P:|data||dmc0", "R:|ram||fim6"}},
        {"what is gone stays when so set, but for a volume that moved",
         keep,
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "H:|\\\\?\\VOLUME{gone}||imc0",
          "R:|ram||fim6"},
         {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "E:|stick||fm2",
          "E:\\deep|stick||fm2", "H:|\\\\?\\VOLUME{gone}||imc0", "R:|ram||fim6"}},
        {"what moved to a place that is not to be indexed was not replaced there",
         keep_manual,
         {"Q:|data||imc0"},
         {"C:|system||fm3", "C:\\mount\\data|data||fm3", "D:|data||fm3", "E:|stick||fm2",
          "E:\\deep|stick||fm2", "R:|ram||fm6"}},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(make_list(usual_system(), row.settings, true), row.to_index) << row.what;
        EXPECT_EQ(make_list(usual_system(), row.settings, false), row.known) << row.what;
    }
}

// A locked or empty drive answers nothing: what is known as NTFS stays, nothing new comes of it.
TEST(ntfs_volume, file_system_decides) {
    script_t system;
    system.add("locked", FIXED, nullptr, {"C:\\"}).add("empty", REMOVABLE, nullptr, {"D:\\"});
    system.add("formatted", FIXED, "ReFS", {"E:\\"});
    const ntfs_volume_config_t locked = {"\\\\?\\Volume{locked}", "C:", "", "", true, false, true};
    const ntfs_volume_config_t formatted = {"\\\\?\\Volume{formatted}", "E:", "", "", true, false, true};
    EXPECT_EQ(make_list(system, {{locked, formatted}}, true), texts_t{"C:|locked||fimc3"});
    EXPECT_EQ(make_list(system, {}, false), texts_t{});
}

TEST(ntfs_volume, without_path_names_letters_and_mount_points_are_walked) {
    script_t system = usual_system();
    system.mount_points["C:\\"].insert(system.mount_points["C:\\"].begin(), {"none\\", "disc\\"});
    system.names["C:\\disc\\"] = volume_name("disc");
    system.names["D:\\"] = "\\\\?\\VOLUME{DATA}\\"; // the system's two ways to write it
    system.devices.clear();                         // so that the letters' own pass adds nothing
    settings_t deep;
    deep.find_mount_points_on_removable_volumes = deep.auto_include_removable_volumes = true;
    const texts_t fixed = {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3", "E:|stick||fm2",
                           "R:|ram||fim6"};
    const texts_t all = {"C:|system||fim3", "C:\\mount\\data|data||fim3", "D:|data||fim3",
                         "E:|stick||fim2",  "E:\\deep|stick||fim2",       "R:|ram||fim6"};
    for (u32 error : {1u, NTFS_VOLUME_NOT_IMPLEMENTED}) {
        system.path_names_error = error;
        EXPECT_EQ(make_list(system, {}, false), fixed);
        EXPECT_EQ(make_list(system, deep, true), all);
    }
    ntfs_volume_system_t calls = scripted;
    calls.get_path_names = nullptr;
    EXPECT_EQ(make_list(system, {}, false, &calls), fixed);
    calls.find_first_mount_point = nullptr;
    const texts_t letters = {"C:|system||fim3", "D:|data||fim3", "E:|stick||fm2", "R:|ram||fim6"};
    EXPECT_EQ(make_list(system, {}, false, &calls), letters);
}

TEST(ntfs_volume, letters_without_a_volume_name) {
    script_t system;
    system.add("c", FIXED, "NTFS", {"C:\\"});
    system.add_nameless("D:", FIXED, "\\Device\\HarddiskVolume7");
    system.add_nameless("E:", REMOVABLE, "\\Device\\HarddiskVolume8");
    system.add_nameless("F:", NETWORK, "\\Device\\HarddiskVolume9");
    system.add_nameless("G:", FIXED, "\\Device\\CdRom0");
    system.add_nameless("H:", FIXED, "\\Device\\Floppy0");
    // Mounted since the volumes were listed.
    system.add("late", FIXED, "NTFS", {"L:\\"}).volumes.pop_back();
    EXPECT_EQ(make_list(system, {}, true), (texts_t{"C:|c||fim3", "D:|\\\\.\\D:||fim3", "L:|late||fim3"}));
    EXPECT_EQ(make_list(system, {}, false),
              (texts_t{"C:|c||fim3", "D:|\\\\.\\D:||fim3", "E:|\\\\.\\E:||fm2", "L:|late||fim3"}));
    const ntfs_volume_config_t known = {"\\\\.\\D:", "D:", "", "", true, true, true};
    EXPECT_EQ(make_list(system, {{known}}, true)[1], "D:|\\\\.\\D:||fimrc3");
    ntfs_volume_system_t calls = scripted;
    calls.get_volume_name = nullptr;
    EXPECT_EQ(make_list(system, {}, true, &calls), (texts_t{"C:|c||fim3", "D:|\\\\.\\D:||fim3"}));
}

TEST(ntfs_volume, substituted_drives_are_followed) {
    const std::string name(120, 'n');
    const std::string longest = std::string(118, 'n') + "\xF0\x9F\x98\x80"; // two units across the limit
    const struct {
        std::map<std::string, std::string> devices;
        texts_t list;
    } rows[] = {
        {{{"Q:", "\\??\\C:\\a\\b"}}, {"Q:|c|a\\b|fim3"}},
        {{{"Q:", "\\??\\C:\\"}}, {"Q:|c||fim3"}},
        {{{"Q:", "\\??\\C:"}}, {"Q:|c||fim3"}},
        {{{"Q:", "\\??\\c:\\a"}}, {"Q:|c|a|fim3"}},
        {{{"Q:", "\\??\\S:\\x"}}, {"Q:|stick|x|fm2"}},
        {{{"Q:", "\\??\\C:\\a"}, {"R:", "\\??\\Q:\\b"}, {"T:", "\\??\\R:\\c"}},
         {"Q:|c|a|fim3", "R:|c|a\\b|fim3", "T:|c|a\\b\\c|fim3"}},
        {{{"Q:", "\\??\\C:\\"}, {"R:", "\\??\\Q:\\b"}, {"T:", "\\??\\R:"}},
         {"Q:|c||fim3", "R:|c|b|fim3", "T:|c|b|fim3"}},
        // Nowhere: circles, shares, drives that are not there, a disc.
        {{{"Q:", "\\??\\Q:\\a"}}, {}},
        {{{"Q:", "\\??\\R:\\a"}, {"R:", "\\??\\Q:\\b"}}, {}},
        {{{"Q:", "\\??\\UNC\\server\\share"}, {"R:", "\\??\\"}, {"T:", "\\??\\C"}, {"U:", "\\??\\Z:\\"}}, {}},
        {{{"Q:", "\\??\\X:\\a"}}, {}},
        {{{"Q:", "\\??\\D:\\a"}, {"D:", "\\Device\\HarddiskVolume7"}}, {}},
        // Too long for a path.
        {{{"Q:", "\\??\\C:\\" + name}, {"R:", "\\??\\Q:\\" + name}, {"T:", "\\??\\R:\\" + name}},
         {"Q:|c|" + name + "|fim3", "R:|c|" + name + "\\" + name + "|fim3",
          "T:|c|" + name + "\\" + name + "\\" + std::string(18, 'n') + "|fim3"}},
        {{{"Q:", "\\??\\C:\\" + name + "1234567890123456789"}, {"R:", "\\??\\Q:\\1" + longest}},
         {"Q:|c|" + name + "1234567890123456789|fim3",
          "R:|c|" + name + "1234567890123456789\\1" + longest.substr(0, 118) + "|fim3"}},
    };
    for (const auto &row : rows) {
        script_t system;
        system.add("c", FIXED, "NTFS", {"C:\\"}).add("stick", REMOVABLE, "NTFS", {"S:\\"});
        system.add("disc", CD_ROM, "NTFS", {"X:\\"});
        system.names["c:\\"] = volume_name("c");
        system.devices.insert(row.devices.begin(), row.devices.end());
        texts_t list = make_list(system, {}, false);
        std::erase_if(list, [](const std::string &text) { return text[0] == 'C' || text[0] == 'S'; });
        EXPECT_EQ(list, row.list) << row.devices.begin()->second;
        EXPECT_LT(script.device_queries, 600u);
    }
}

TEST(ntfs_volume, order_is_by_folded_names_then_by_bytes) {
    const char *const names[][3] = {
        {"b", "B:", ""},      {"g", "A:\\\xC3\xA9", ""}, {"g", "A:\\E", ""}, {"g", "A:\\f", ""},
        {"B", "a:", ""},      {"b", "a:", "z"},          {"b", "a:", "Y"},   {"B", "a:", "Z"},
        {"a", "A:", ""},      {"A", "A:", ""},           {"a", "a:", ""},    {"A", "a:", ""},
        {"g", "A:\\E2", "x"}, {"b", "a:", ""},           {"b", "A", ""},
    };
    settings_t settings;
    for (const auto &[guid, path, root] : names)
        settings.configs.push_back({guid, path, root, "", true, false, true});
    const texts_t expected = {"A|b||",     "A:|A||",           "A:|a||",      "a:|A||",    "a:|a||",
                              "a:|B||",    "a:|b||",           "a:|b|Y|",     "a:|B|Z|",   "a:|b|z|",
                              "A:\\E|g||", "A:\\\xC3\xA9|g||", "A:\\E2|g|x|", "A:\\f|g||", "B:|b||"};
    for (size_t turn = 0; turn < settings.configs.size(); turn++) {
        std::rotate(settings.configs.begin(), settings.configs.begin() + 1, settings.configs.end());
        texts_t list = make_list({}, settings, true);
        for (std::string &text : list)
            text.erase(text.rfind('|') + 1);
        EXPECT_EQ(list, expected);
    }
}

// A log with what differs from run to run (the search's handle, addresses, the time) written as `#`.
std::string without_numbers(const std::string &log) {
    std::istringstream lines(log);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        for (const char *number : {"VEH ", " found ntfs volume: ", "ntfs volume create list "}) {
            if (line.find(number) != std::string::npos)
                line.replace(line[0] == 'a' ? line.rfind(' ') + 1 : std::strlen(number), std::string::npos,
                             "#");
        }
        text += line + "\n";
    }
    return text;
}

TEST(ntfs_volume, log_tells_each_step) {
    script_t system;
    system.add("c", FIXED, "NTFS", {"C:\\"}).add("n", FIXED, "NTFS", {"N:\\"}).add("x", CD_ROM, "NTFS", {});
    system.add_nameless("M:", FIXED, "\\Device\\HarddiskVolume3");
    system.devices["Q:"] = "\\??\\C:\\sub";
    const ntfs_volume_config_t known = {"\\\\?\\Volume{c}", "C:", "", "", true, false, true};
    log_capture_t log;
    make_list(system, {{known}}, true);
    const std::string text = without_numbers(log.take());
    EXPECT_EQ(text, "config volume: C: | \\\\?\\Volume{c} | \n"
                    "VEH #\n"
                    "volume \\\\?\\Volume{c}\\: drive type 3\n"
                    "GetVolumePathNamesForVolumeName 234\n"
                    "GetVolumePathNamesForVolumeName C:\\\n"
                    "add found ntfs volume: C: | \\\\?\\Volume{c} |  | #\n"
                    "volume \\\\?\\Volume{n}\\: drive type 3\n"
                    "GetVolumePathNamesForVolumeName 234\n"
                    "GetVolumePathNamesForVolumeName N:\\\n"
                    "add new found ntfs volume: N: | \\\\?\\Volume{n} |  | #\n"
                    "add volume: N: | \\\\?\\Volume{n} | \n"
                    "volume \\\\?\\Volume{x}\\: drive type 5\n"
                    "QueryDosDevice C: \\Device\\HarddiskVolume1\n"
                    "C:\\ GetVolumeNameForVolumeMountPoint \\\\?\\Volume{c}\\ 3\n"
                    "C:\\ is ntfs\n"
                    "QueryDosDevice M: \\Device\\HarddiskVolume3\n"
                    "M:\\ GetVolumeNameForVolumeMountPoint FAILED 4390\n"
                    "add new found ntfs volume: M: | \\\\.\\M: |  | #\n"
                    "add volume: M: | \\\\.\\M: | \n"
                    "QueryDosDevice N: \\Device\\HarddiskVolume2\n"
                    "N:\\ GetVolumeNameForVolumeMountPoint \\\\?\\Volume{n}\\ 3\n"
                    "N:\\ is ntfs\n"
                    "QueryDosDevice Q: \\??\\C:\\sub\n"
                    "QueryDosDevice Q: \\??\\C:\\sub\n"
                    "add new found ntfs volume: Q: | \\\\?\\Volume{c} | sub | #\n"
                    "add volume: Q: | \\\\?\\Volume{c} | sub\n"
                    "volume: C: | \\\\?\\Volume{c} |  found 1\n"
                    "volume: M: | \\\\.\\M: |  found 1\n"
                    "volume: N: | \\\\?\\Volume{n} |  found 1\n"
                    "volume: Q: | \\\\?\\Volume{c} | sub found 1\n"
                    "ntfs volume create list #\n");
}

// Whatever machine this is: settings for it that name an image, a volume that is gone, and one that is off.
TEST(ntfs_volume, the_running_system_is_asked) {
    settings_t settings({{"\\home\\u\\disk.img", "J:", nullptr, nullptr, true, false, false},
                         {"\\\\?\\Volume{no-such-volume}", "K:", "", "", true, false, true},
                         {"\\\\?\\Volume{no-such-volume}", "L:", "", "", false, false, true}});
    for (const bool apply_rules : {false, true}) {
        ntfs_volume_list_t *list = ntfs_volume_create_list(settings.get(), apply_rules);
        const ntfs_volume_t *image = ntfs_volume_find(list, "\\home\\u\\disk.img", "J:", "");
        ASSERT_TRUE(image);
        EXPECT_TRUE(image->from_config && !image->found);
        EXPECT_FALSE(ntfs_volume_find(list, "\\\\?\\Volume{no-such-volume}", "K:", ""));
        EXPECT_EQ(!ntfs_volume_find(list, "\\\\?\\Volume{no-such-volume}", "L:", ""), apply_rules);
        for (const ntfs_volume_t *volume = list->first; volume; volume = volume->next) {
            EXPECT_NE(volume->from_config, volume->found) << volume->path;
            EXPECT_FALSE(volume->found && !std::strchr("\x02\x03\x06", static_cast<int>(volume->drive_type)));
        }
        list_texts(list);
        ntfs_volume_destroy_list(list);
    }
}

// Where volumes have names, the calls agree about them. A system of settings alone has no volume to name.
TEST(ntfs_volume, calls_of_the_running_system_agree) {
    ntfs_volume_system_t system;
    ntfs_volume_get_system(&system);
    ASSERT_EQ(!system.find_first_volume, !system.get_drive_type);
    if (!system.find_first_volume)
        return;
    utf8_buf_t volume, names, text;
    utf8_buf_init(&volume);
    utf8_buf_init(&names);
    utf8_buf_init(&text);
    const std::intptr_t find = system.find_first_volume(&volume);
    ASSERT_NE(find, NTFS_VOLUME_FIND_NONE);
    bool is_c_found = false;
    do {
        u32 length = 0;
        if (system.get_path_names(volume.data, &length, nullptr) != NTFS_VOLUME_MORE_DATA)
            continue;
        EXPECT_EQ(system.get_path_names(volume.data, &length, &names), 0u);
        ASSERT_EQ(static_cast<u32>(names.length), length);
        if (!*names.data)
            continue;
        is_c_found |= !std::strcmp(names.data, "C:\\");
        EXPECT_EQ(system.get_volume_name(names.data, &text), 0u);
        EXPECT_STREQ(text.data, volume.data);
    } while (system.find_next_volume(find, &volume));
    system.find_volume_close(find);
    EXPECT_TRUE(is_c_found);
    EXPECT_EQ(system.get_drive_type("C:\\"), FIXED);
    EXPECT_EQ(system.get_file_system("C:\\", &text), 0u);
    EXPECT_GT(text.length, 0);
    EXPECT_EQ(system.query_dos_device("C:", &text), 0u);
    EXPECT_EQ(std::string(text.data).rfind("\\Device\\", 0), 0u) << text.data;
    EXPECT_NE(system.query_dos_device("!:", &text), 0u);
    EXPECT_EQ(text.length, 0);
    const std::intptr_t folders = system.find_first_mount_point("C:\\", &text);
    if (folders != NTFS_VOLUME_FIND_NONE)
        system.find_mount_point_close(folders);
    utf8_buf_kill(&text);
    utf8_buf_kill(&names);
    utf8_buf_kill(&volume);
}

} // namespace
} // namespace findwright
