#include "fw/fw_plan.h"

#include "app/config.h"
#include "app/db_settings.h"
#include "fw/fw_path.h"
#include "fw/fw_source.h"
#include "os/os.h"

#include <utility>

namespace findwright {

void fw_plan_init(fw_plan_t *plan) {
    db_wanted_init(&plan->wanted);
}

void fw_plan_kill(fw_plan_t *plan) {
    db_wanted_kill(&plan->wanted);
}

// --- Settings ----------------------------------------------------------------------------------------------

static std::string _fw_load_settings_file(const std::string &file) {
    std::string path = fw_path_from_user(file);
    platform_file_t opened = os_open_read(path.c_str(), false);
    if (opened == PLATFORM_FILE_NONE)
        return "cannot read the settings " + file + ": " + fw_system_error();
    os_close(opened);
    if (!config_load_placed(nullptr, path.c_str()))
        return "cannot read the settings " + file + ": it has no section [Findwright]";
    return "";
}

// --- The choice --------------------------------------------------------------------------------------------

static void _fw_take_exclusions(fw_plan_t *plan) {
    db_wanted_t settings;
    db_wanted_init(&settings);
    db_settings_get_wanted(&settings, false);
    std::swap(plan->wanted.exclude, settings.exclude);
    plan->wanted.index_flags = settings.index_flags;
    db_wanted_kill(&settings);
}

// The sources of the settings, for a user who has no database yet.
static std::string _fw_take_sources(fw_plan_t *plan) {
    db_settings_get_wanted(&plan->wanted, false);
    u32 readable = 0;
    for (const db_source_t *source = plan->wanted.first; source; source = source->next) {
        std::string error = fw_source_check(source);
        readable += error.empty();
        plan->warnings += error.empty() ? "" : "fw: " + error + "\n";
    }
    if (readable != 0)
        return "";
    if (plan->wanted.first)
        return plan->warnings.substr(4,
                                     plan->warnings.size() - 5); // without the first "fw: " and the last end
    return "there is nothing to search: name a source with --folder DIR, --ntfs FILE or --file-list FILE, or "
           "a "
           "database with --db FILE, or run findwright once, which makes one. fw --help lists the options.";
}

static std::string _fw_take_database(fw_plan_t *plan) {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    if (db_get_filename(&filename) && os_file_exists(filename.data))
        plan->database = filename.data;
    utf8_buf_kill(&filename);
    return plan->database.empty() ? _fw_take_sources(plan) : "";
}

std::string fw_plan_make(fw_plan_t *plan, const fw_options_t *options) {
    bool is_given = fw_source_is_given(options) || !options->db.empty();
    if (!options->config.empty()) {
        std::string error = _fw_load_settings_file(options->config);
        if (!error.empty())
            return error;
    } else if (!is_given) {
        config_load_placed(nullptr, nullptr); // the user may have none
    }
    if (!options->db.empty()) {
        plan->database = fw_path_from_user(options->db);
        return "";
    }
    if (!is_given)
        return _fw_take_database(plan);
    if (!options->config.empty())
        _fw_take_exclusions(plan);
    return fw_source_add_all(options, &plan->wanted);
}

} // namespace findwright
