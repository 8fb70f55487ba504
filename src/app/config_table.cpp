// The table of the plain settings, and the keys that are made of two parts.
#include "app/config_internal.h"
#include "db/db_extended_info.h"
#include "db/db_layout.h"
#include "os/os.h"
#include "query/db_query_value.h"
#include "query/db_search_expand.h"
#include "query/db_term.h"
#include "track/db_folder_update.h"
#include "track/db_monitor_folder.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <iterator>

namespace findwright {

// Which variable a type of value needs is checked here: all else goes through `void *`.
static constexpr config_row_t _number(const char *key, i32 *variable, const char *meaning) {
    return {CONFIG_NUMBER, key, variable, meaning};
}
static constexpr config_row_t _number(const char *key, u32 *variable, const char *meaning) {
    return {CONFIG_NUMBER, key, variable, meaning};
}
static constexpr config_row_t _small(const char *key, u32 *variable, const char *meaning) {
    return {CONFIG_SMALL, key, variable, meaning};
}
static constexpr config_row_t _small(const char *key, i32 *variable, const char *meaning) {
    return {CONFIG_SMALL, key, variable, meaning};
}
static constexpr config_row_t _text(const char *key, char **variable, const char *meaning) {
    return {CONFIG_TEXT, key, variable, meaning};
}
static constexpr config_row_t _path(const char *key, char **variable, const char *meaning) {
    return {CONFIG_PATH, key, variable, meaning};
}
#define NUMBER(name, meaning) _number(#name, &(name), meaning)
#define SMALL(name, meaning) _small(#name, &(name), meaning)
#define TEXT(name, meaning) _text(#name, &(name), meaning)
#define PATH(name, meaning) _path(#name, &(name), meaning)

static const config_row_t _window_rows[] = {
    NUMBER(window_x, "left edge"),
    NUMBER(window_y, "top edge"),
    NUMBER(window_wide, "width"),
    NUMBER(window_high, "height"),
    _small("maximized", &config_maximized, "the window fills the screen"),
    _small("minimized", &config_minimized, "the window begins minimized"),
    _small("fullscreen", &config_fullscreen, "no frame around the window"),
    _small("ontop", &config_ontop,
           "0: an ordinary window; 1: always in front of others; 2: in front while a search is typed"),
    _small("snap", &config_snap, "the window snaps to the edges of the screen"),
    _number("snaplen", &config_snaplen, "how near to an edge it snaps, in pixels"),
    TEXT(window_title_format, "template of the title; empty: the standard one"),
    SMALL(status_bar_visible, "show the status bar"),
    SMALL(show_in_taskbar, "the window has a button in the taskbar"),
    SMALL(hide_on_close, "closing hides the window and keeps it for the next time"),
    SMALL(close_on_execute, "opening an item hides the window"),
    SMALL(allow_multiple_windows, "a further start opens a further window"),
    SMALL(new_inherit, "a new window begins with the state of the last one"),
    NUMBER(auto_size_1, "width of the first of the automatic window sizes"),
    NUMBER(auto_size_2, "width of the second"),
    NUMBER(auto_size_3, "width of the third"),
    NUMBER(auto_size_aspect_ratio_x, "their width to ..."),
    NUMBER(auto_size_aspect_ratio_y, "... their height"),
    NUMBER(auto_size_path_x, "part of the width that the path takes: this many ..."),
    NUMBER(auto_size_path_y, "... of so many"),
    NUMBER(text_size, "step of the text's zoom"),
    NUMBER(min_zoom, "least step of the zoom"),
    NUMBER(max_zoom, "greatest step of the zoom"),
    _number("dpi", &config_dpi, "scale of all sizes: 96 is the screen's own, 192 twice that, 0 none"),
    SMALL(themed_toolbar, "toolbars in the system's theme"),
    SMALL(double_buffer, "draw off the screen first"),
    SMALL(display_full_path_name, "show the full path of the search's folder"),
};

static const config_row_t _program_rows[] = {
    _number("language", &config_language, "language identifier of the texts; 0: the system's"),
    TEXT(instance_name, "name of this instance, when the command line gives none"),
    SMALL(allow_multiple_instances, "each start is a process by itself"),
    SMALL(run_in_background, "stay when the last window is closed"),
    SMALL(check_for_updates_on_startup, "ask for a newer version at each start"),
    SMALL(beta_updates, "ask for test versions too"),
    _small("debug", &config_debug, "write the debug log"),
    TEXT(service_pipe_name, "name of the pipe to the service; empty: the standard one"),
    _small("ipc", &config_ipc, "other programs may search through window messages"),
    NUMBER(max_recv_size, "most bytes to receive at once"),
    SMALL(last_options_page, "page that the options were last closed on"),
    SMALL(last_export_type, "kind of file that was last exported"),
    _small("lvm", &config_lvm, ""),
    _small("winmm", &config_winmm, ""),
    _small("ntcreatefile", &config_ntcreatefile, ""),
    NUMBER(max_threads, "most threads of a search or a sort; 0: as many as there are processors"),
    SMALL(reuse_threads, "keep threads that have ended for new work"),
    SMALL(db_update_thread_priority,
          "priority of the threads that bring the index up to date, from -15, only when idle, to 2"),
};

static const config_row_t _tray_rows[] = {
    SMALL(show_tray_icon, "show it"),
    SMALL(minimize_to_tray, "a minimized window leaves the taskbar"),
    SMALL(single_click_tray, "one click on it opens, not two"),
    SMALL(toggle_window_from_tray_icon, "a click hides a window that is in front"),
    SMALL(allow_multiple_windows_from_tray, "a click opens a further window"),
    TEXT(tray_show_command_line, "command line that showing a window from it stands for"),
    TEXT(taskbar_notification_title_format, "template of its tip; empty: the standard one"),
};

static const config_row_t _hot_key_rows[] = {
    NUMBER(new_window_key, "opens a window"),
    NUMBER(show_window_key, "shows the window"),
    NUMBER(toggle_window_key, "shows the window, or hides it"),
};

static const config_row_t _list_rows[] = {
    _small("view", &config_view, "0: details; 1: thumbnails"),
    NUMBER(listview_item_high, "height of a row in pixels; 0: as the text needs"),
    NUMBER(header_high, "height of the header in pixels; 0: the system's"),
    SMALL(alternate_row_color, "odd rows in their own colours"),
    SMALL(show_mouseover, "the row under the mouse in its own colours"),
    SMALL(show_highlighted_search_terms, "mark what the search found in the names"),
    SMALL(full_row_select, "the selection spans all columns"),
    SMALL(draw_focus_rect, "a frame around the focused row"),
    SMALL(icons_only, "icons in place of thumbnails"),
    SMALL(alpha_select, "draw the selection's frame translucent"),
    NUMBER(translucent_selection_rectangle_alpha, "how opaque its inside is, of 255"),
    SMALL(single_click_open, "one click opens an item, not two"),
    SMALL(underline_icon_titles, "0: never; 1: always; 2: the row under the mouse"),
    SMALL(double_click_path, "a double click on the path opens the folder"),
    SMALL(wrap_focus, "moving on from the last row goes to the first"),
    SMALL(sticky_vscroll_bottom, "a list that stands at its end follows a growing result"),
    SMALL(reset_vscroll_on_search, "a new search begins at the first row"),
    SMALL(clear_selection_on_search, "a new search begins with nothing selected"),
    SMALL(hide_empty_search_results, "an empty search finds nothing, not everything"),
    SMALL(auto_scroll_view, "scroll while the selection's frame is pulled over an edge"),
    NUMBER(auto_scroll_repeat_delay, "milliseconds before a list under a dragged item scrolls"),
    NUMBER(auto_scroll_repeat_rate, "milliseconds between its further steps"),
    SMALL(update_display_after_scroll, "paint at once after a scroll"),
    SMALL(update_display_after_mask, "paint at once after a change of rows"),
    SMALL(ctrl_mouse_wheel_action, "what the wheel does with Ctrl"),
    _small("tooltips", &config_tooltips, "show tips"),
    SMALL(listview_tooltips, "show the whole of a text that its column cuts"),
    SMALL(show_detailed_listview_tooltips, "show all that is known of the row"),
    SMALL(load_icon_priority, "priority of the thread that loads icons"),
    SMALL(load_thumbnail_priority, "priority of the thread that loads thumbnails"),
    SMALL(load_fileinfo_priority, "priority of the threads that load sizes and dates"),
};

static const config_row_t _thumbnail_rows[] = {
    NUMBER(thumbnail_size, "edge of a thumbnail"),
    NUMBER(min_thumbnail_size, "least edge"),
    NUMBER(max_thumbnail_size, "greatest edge"),
    NUMBER(medium_thumbnail_size, "edge of medium thumbnails"),
    NUMBER(large_thumbnail_size, "edge of large thumbnails"),
    NUMBER(extra_large_thumbnail_size, "edge of extra large thumbnails"),
    NUMBER(thumbnail_load_size, "edge to load pictures with; 0: the one that is shown"),
    SMALL(thumbnail_fill, "fill the whole square"),
};

static const config_row_t _format_rows[] = {
    SMALL(size_format, "of sizes: 0 fitting unit, 1 bytes, 2 KB, 3 MB, 4 GB"),
    SMALL(statusbar_size_format, "the same in the status bar"),
    TEXT(date_format, "of dates; empty: the user's"),
    TEXT(time_format, "of times; empty: the user's"),
    SMALL(date_descending_first, "the first click on a date column puts the newest first"),
    SMALL(size_descending_first, "the first click on the size column puts the largest first"),
    SMALL(show_selected_item_in_statusbar, "tell of the selected item"),
    TEXT(statusbar_selected_item_format, "template of what is told; empty: all columns"),
    SMALL(show_size_in_statusbar, "show the size of all that is found or selected"),
    SMALL(show_number_of_results_with_selection, "show \"n of m selected\""),
};

static const config_row_t _direction_rows[] = {
    SMALL(rtl_listview_edit, "new names are edited from right to left"),
    SMALL(force_path_ltr_order, "paths stay in their order"),
    SMALL(force_path_left_align, "paths stay at the left"),
    SMALL(invert_layout, "the other direction than the language's"),
    SMALL(update_layout_on_input_language_change, "the direction follows the keyboard's language"),
    SMALL(control_shift_action, "what Ctrl with Shift does"),
    SMALL(change_search_rtl_reading_action, "which key turns the search's direction"),
    SMALL(invert_layout_action, "which key turns the window's direction"),
};

static const config_row_t _search_edit_rows[] = {
    SMALL(search_as_you_type, "search with each letter, not with Enter"),
    SMALL(always_update_query_on_search_parameter_change, "search at once when an option changes"),
    SMALL(focus_search_on_activate, "a window that comes to the front has the box ready"),
    SMALL(select_search_on_mouse_click, "the first click selects the whole text"),
    SMALL(select_search_on_focus_mode, "whether the text is selected when the box gets the focus"),
    SMALL(select_search_on_set_mode, "whether it is selected when the program puts it there"),
    SMALL(search_edit_move_caret_to_selection_end, "arrow keys leave a selection at its ends"),
};

static const config_row_t _search_rows[] = {
    SMALL(match_case, "upper and lower case differ"),
    SMALL(match_whole_word, "only whole words"),
    SMALL(match_path, "compare with the whole path"),
    SMALL(match_diacritics, "accented letters differ from plain ones"),
    SMALL(match_regex, "the text is a regular expression"),
    SMALL(fast_ascii_search, "use the quick comparison for plain ASCII"),
    SMALL(match_path_when_search_contains_path_separator,
          "a text with a separator is compared with the path"),
    SMALL(match_whole_filename_when_using_wildcards, "a text with `*` or `?` must match the whole name"),
    SMALL(allow_literal_operators, "`AND`, `OR` and `NOT` are operators"),
    SMALL(allow_round_bracket_parenthesis, "`(` and `)` group, as `<` and `>` do"),
    SMALL(operator_precedence, "0: OR binds tighter than AND; 1: AND does"),
    SMALL(expand_environment_variables, "replace environment variables in the text"),
    SMALL(convert_forward_slash_to_backslash, "`/` is taken for `\\`; on from the start on Linux"),
    SMALL(replace_exact_trailing_star_dot_star_with_star, "`*.*` at the end is taken for `*`"),
    NUMBER(size_tiny, "upper end of `size:tiny`, in bytes"),
    NUMBER(size_small, "upper end of `size:small`"),
    NUMBER(size_medium, "upper end of `size:medium`"),
    NUMBER(size_large, "upper end of `size:large`"),
    NUMBER(size_huge, "upper end of `size:huge`"),
};

static const config_row_t _state_rows[] = {
    _text("search", &config_search, "the text"),
    _text("filter", &config_filter, "the filter's name"),
    TEXT(filter_findwright_name, "name to show for the filter that lets all pass"),
    _text("sort", &config_sort, "the column's name"),
    SMALL(sort_ascending, "in rising order"),
    SMALL(always_keep_sort, "keep the order in a search that would be quicker in another"),
    _small("index", &config_index, "which index is searched: the local one, a file list or a server"),
    PATH(index_file_list, "the file list"),
    TEXT(index_qtp_server, "the server"),
    SMALL(index_link_type, "what paths of the server become: 0 left as they are, 1 shares of drives, 2 their "
                           "administrative shares, 3 addresses"),
};

static const config_row_t _home_rows[] = {
    SMALL(home_match_case, "match case"),
    SMALL(home_match_whole_word, "whole words"),
    SMALL(home_match_path, "match the path"),
    SMALL(home_match_diacritics, "match accents"),
    SMALL(home_regex, "regular expressions"),
    SMALL(home_search, "the text"),
    SMALL(home_filter, "the filter"),
    SMALL(home_sort, "the order"),
    SMALL(home_view, "the view"),
    SMALL(home_index, "the index"),
};

static const config_row_t _filter_rows[] = {
    SMALL(filters_visible, "show the bar"),
    SMALL(filters_right_align, "put it at the right"),
    SMALL(filters_tab_stop, "the Tab key stops at it"),
    NUMBER(filters_wide, "its width in pixels"),
    NUMBER(filter_organize_x, "the dialog's left edge"),
    NUMBER(filter_organize_y, "its top edge"),
    NUMBER(filter_organize_wide, "its width"),
    NUMBER(filter_organize_high, "its height"),
};

static const config_row_t _bookmark_rows[] = {
    SMALL(bookmark_remember_case, "match case"),
    SMALL(bookmark_remember_wholeword, "whole words"),
    SMALL(bookmark_remember_path, "match path"),
    SMALL(bookmark_remember_diacritic, "match accents"),
    SMALL(bookmark_remember_regex, "regular expressions"),
    SMALL(bookmark_remember_sort, "the order"),
    SMALL(bookmark_remember_filter, "the filter"),
    SMALL(bookmark_remember_index, "the index"),
    SMALL(bookmark_remember_search, "the text"),
    NUMBER(bookmark_remember_view, "the view"),
    NUMBER(bookmark_organize_x, "the dialog's left edge"),
    NUMBER(bookmark_organize_y, "its top edge"),
    NUMBER(bookmark_organize_wide, "its width"),
    NUMBER(bookmark_organize_high, "its height"),
};

static const config_row_t _preview_rows[] = {
    SMALL(preview_visible, "show it"),
    NUMBER(preview_x, "its width in pixels"),
    SMALL(preview_tab_stop, "the Tab key stops at it"),
    SMALL(preview_fill, "fill the whole pane"),
    NUMBER(preview_mag_filter, "how small pictures are made larger"),
    NUMBER(preview_min_filter, "how large pictures are made smaller"),
    NUMBER(preview_load_size, "edge to load pictures with; 0: the pane's"),
    SMALL(show_preview_handlers_in_preview_pane, "show documents by the system's preview handlers"),
};

static const config_row_t _command_rows[] = {
    TEXT(open_folder_command2, "opens a folder; empty: by the system"),
    TEXT(open_file_command2, "opens a file"),
    TEXT(open_path_command2, "opens the folder that holds an item"),
    TEXT(explore_command2, "shows a folder in the file manager"),
    TEXT(explore_path_command2, "shows the folder that holds an item"),
    NUMBER(open_many_files_warning_threshold, "ask before opening more items than this"),
    TEXT(custom_verb01, "a verb of the user's own"),
    TEXT(custom_verb02, "a verb of the user's own"),
    TEXT(custom_verb03, "a verb of the user's own"),
    TEXT(custom_verb04, "a verb of the user's own"),
    TEXT(custom_verb05, "a verb of the user's own"),
    TEXT(custom_verb06, "a verb of the user's own"),
    TEXT(custom_verb07, "a verb of the user's own"),
    TEXT(custom_verb08, "a verb of the user's own"),
    TEXT(custom_verb09, "a verb of the user's own"),
    TEXT(custom_verb10, "a verb of the user's own"),
    TEXT(custom_verb11, "a verb of the user's own"),
    TEXT(custom_verb12, "a verb of the user's own"),
    SMALL(context_menu_type, "which of the system's menus a right click shows"),
    SMALL(single_parent_context_menu, "items of several folders share one menu"),
    SMALL(menu_escape_amp, "show `&` in menus as it is"),
    SMALL(menu_folders, ""),
    SMALL(show_copy_name, "copy the name"),
    SMALL(show_copy_path, "copy the path"),
    SMALL(show_copy_full_name, "copy path and name"),
    SMALL(show_open_path, "open the path"),
    SMALL(show_explore, "explore"),
    SMALL(show_explore_path, "explore the path"),
    SMALL(double_quote_copy_as_path, "quotes around copied paths"),
    SMALL(copy_path_folder_append_backslash, "a separator behind copied folders"),
};

static const config_row_t _rename_rows[] = {
    SMALL(rename_select_filepart_only, "begin with the name selected, not the extension"),
    SMALL(rename_move_caret_to_selection_end, "arrow keys leave a selection at its ends"),
    SMALL(rename_nav, "Up and Down go on to the neighbours"),
    SMALL(rename_match_case, "rename: match case"),
    SMALL(rename_regex, "rename: regular expressions"),
    NUMBER(rename_x, "left edge of the dialog"),
    NUMBER(rename_y, "top edge"),
    NUMBER(rename_wide, "width"),
    NUMBER(rename_high, "height"),
    SMALL(advanced_copy_to_match_case, "copy: match case"),
    SMALL(advanced_copy_to_regex, "copy: regular expressions"),
    NUMBER(advanced_copy_to_x, "left edge of the dialog"),
    NUMBER(advanced_copy_to_y, "top edge"),
    NUMBER(advanced_copy_to_wide, "width"),
    NUMBER(advanced_copy_to_high, "height"),
    SMALL(advanced_move_to_match_case, "move: match case"),
    SMALL(advanced_move_to_regex, "move: regular expressions"),
    NUMBER(advanced_move_to_x, "left edge of the dialog"),
    NUMBER(advanced_move_to_y, "top edge"),
    NUMBER(advanced_move_to_wide, "width"),
    NUMBER(advanced_move_to_high, "height"),
};

static const config_row_t _dialog_rows[] = {
    NUMBER(advanced_search_x, "left edge of the search dialog"),
    NUMBER(advanced_search_y, "top edge"),
    NUMBER(advanced_search_wide, "width"),
    NUMBER(advanced_search_high, "height"),
    NUMBER(advanced_search_page_y_offset, "how far it is scrolled"),
    NUMBER(advanced_search_focus_id, "which of its boxes had the focus"),
    SMALL(advanced_search_warnings, "warn of texts that the dialog cannot show"),
    NUMBER(editor_x, "left edge of the list editor"),
    NUMBER(editor_y, "top edge"),
    NUMBER(editor_wide, "width"),
    NUMBER(editor_high, "height"),
    SMALL(editor_maximized, "it fills the screen"),
    SMALL(file_list_relative_paths, "write names in lists relative to the list's folder"),
};

static const config_row_t _index_rows[] = {
    SMALL(index_size, "sizes"),
    SMALL(fast_size_sort, "kept sorted"),
    SMALL(index_date_created, "dates of creation"),
    SMALL(fast_date_created_sort, "kept sorted"),
    SMALL(index_date_modified, "dates of the last change"),
    SMALL(fast_date_modified_sort, "kept sorted"),
    SMALL(index_date_accessed, "dates of the last access"),
    SMALL(fast_date_accessed_sort, "kept sorted"),
    SMALL(index_attributes, "attributes"),
    SMALL(fast_attributes_sort, "kept sorted"),
    SMALL(index_folder_size, "sizes of folders"),
    SMALL(fast_path_sort, "paths kept sorted"),
    SMALL(fast_extension_sort, "extensions kept sorted"),
    SMALL(index_recent_changes, "dates of recent changes"),
    SMALL(extended_information_cache_monitor, "keep what was loaded of an item up to date"),
    PATH(db_location, "folder of the database; empty: the standard one"),
    SMALL(db_multi_user_filename, "user and computer in the database's name"),
    SMALL(db_compress, "compress the database"),
};

static const config_row_t _volume_rows[] = {
    SMALL(auto_include_fixed_volumes, "new fixed NTFS volumes"),
    SMALL(auto_include_removable_volumes, "new removable NTFS volumes"),
    SMALL(auto_remove_offline_ntfs_volumes, "NTFS volumes that are gone leave the list"),
    SMALL(auto_include_fixed_refs_volumes, "new fixed ReFS volumes"),
    SMALL(auto_include_removable_refs_volumes, "new removable ReFS volumes"),
    SMALL(auto_remove_offline_refs_volumes, "ReFS volumes that are gone leave the list"),
    SMALL(find_mount_points_on_removable_volumes, "look for volumes that are mounted on removable ones"),
    NUMBER(refs_skip_buffer_size, "bytes to read at once over a gap that is not worth a jump"),
    NUMBER(refs_read_to_skip_threshold, "longest gap that is read over, in bytes; 0: none"),
    NUMBER(monitor_retry_milliseconds, "time before a volume that could not be followed is tried again"),
    SMALL(monitor_thread_mode_background, "follow volumes at background priority"),
    SMALL(folder_update_thread_mode_background, "scan folders at background priority"),
    SMALL(folder_update_rescan_all_on_allevents, "kept, without effect"),
    SMALL(folder_update_rescan_all_on_updatedir, "kept, without effect"),
    SMALL(folder_update_ignore_updatedir, "kept, without effect"),
};

static const config_row_t _exclude_rows[] = {
    SMALL(exclude_list_enabled, "leave out the folders of the list"),
    SMALL(exclude_hidden_files_and_folders, "leave out what is hidden"),
    SMALL(exclude_system_files_and_folders, "leave out what belongs to the system"),
    TEXT(include_only_files, "patterns between `;`: only such files; empty: all"),
    TEXT(exclude_files, "patterns between `;`: no such files"),
};

static const config_row_t _history_rows[] = {
    SMALL(search_history_enabled, "keep searches"),
    SMALL(search_history_keep_forever, "without limit"),
    NUMBER(search_history_days_to_keep, "else for so many days"),
    SMALL(search_history_always_suggest, "suggest before anything is typed"),
    SMALL(search_history_always_suggest_extend_toolbar, "let the suggestions widen the bar"),
    NUMBER(search_history_visible_count_max, "most rows shown at once"),
    NUMBER(search_history_always_suggest_visible_count_max, "the same before anything is typed"),
    NUMBER(search_history_show_all_max, "most searches of the whole list"),
    NUMBER(search_history_suggestion_max, "most suggestions"),
    NUMBER(search_history_show_all_sort, "order of the whole list: 0 text, 1 count, 2 date"),
    NUMBER(search_history_suggestion_sort, "order of suggestions, likewise"),
    SMALL(search_history_show_above, "show the list above the box"),
    SMALL(search_history_sort, "order of the dialog, likewise"),
    SMALL(search_history_sort_ascending, "in rising order"),
    NUMBER(search_history_x, "the dialog's left edge"),
    NUMBER(search_history_y, "its top edge"),
    NUMBER(search_history_wide, "its width"),
    NUMBER(search_history_high, "its height"),
    NUMBER(search_history_column_search_wide, "width of the column of texts"),
    NUMBER(search_history_column_search_order, "its place"),
    NUMBER(search_history_column_count_wide, "width of the column of counts"),
    NUMBER(search_history_column_count_order, "its place"),
    NUMBER(search_history_column_date_wide, "width of the column of dates"),
    NUMBER(search_history_column_date_order, "its place"),
    SMALL(run_history_enabled, "count how often items are opened"),
    SMALL(run_history_keep_forever, "without limit"),
    NUMBER(run_history_days_to_keep, "else for so many days"),
};

static const config_row_t _qtp_rows[] = {
    SMALL(qtp_server_enabled, "run it"),
    NUMBER(qtp_server_port, "its port"),
    TEXT(qtp_server_bindings, "addresses it listens on; empty: all"),
    TEXT(qtp_server_username, "who may log in; empty: all"),
    TEXT(qtp_server_password, "the password"),
    TEXT(qtp_server_welcome_message, "greeting"),
    SMALL(qtp_server_logging_enabled, "write a log"),
    PATH(qtp_server_log_file_name, "the log's file; empty: the standard one"),
    NUMBER(qtp_server_log_max_size, "most bytes of the log"),
    NUMBER(qtp_server_log_delta_size, "bytes to cut when it is full"),
    SMALL(qtp_server_allow_file_download, "files may be fetched"),
};

static const config_row_t _http_rows[] = {
    SMALL(http_server_enabled, "run it; 2: and end the program where it cannot start"),
    NUMBER(http_server_port, "its port"),
    TEXT(http_server_bindings,
         "addresses it listens on, such as 192.168.1.5;127.0.0.1; `*`: all; empty: on Linux this machine's "
         "own, on Windows all"),
    TEXT(http_title_format, "template of the pages' title; empty: the standard one"),
    TEXT(http_server_username, "who may log in; empty: all"),
    TEXT(http_server_password, "the password; on Linux there must be one where other machines can reach it"),
    PATH(http_server_home, "folder of pages that replace the built-in ones; empty: the standard one"),
    TEXT(http_server_default_page, "page to begin with; empty: the search"),
    NUMBER(http_server_items_per_page, "results on a page"),
    SMALL(http_server_logging_enabled, "write a log"),
    PATH(http_server_log_file_name, "the log's file; empty: the standard one"),
    NUMBER(http_server_log_max_size, "most bytes of the log"),
    NUMBER(http_server_log_delta_size, "bytes to cut when it is full"),
    SMALL(http_server_allow_file_download, "files may be fetched"),
    SMALL(http_server_allow_no_password, "on Linux, no password is needed from anywhere"),
    TEXT(http_server_host_names,
         "further names by which browsers may ask for it, such as files.example.org; other names than the "
         "addresses' and this machine's are refused"),
};

const config_topic_t config_table[] = {
    {"Search window", "Where the search window stood when it was last closed, in pixels, and how it looks.",
     _window_rows, std::size(_window_rows)},
    {"Program", "Start, instances and languages.", _program_rows, std::size(_program_rows)},
    {"Tray icon", "The icon beside the clock.", _tray_rows, std::size(_tray_rows)},
    {"System keys",
     "Keys that work in every program: the key's code, plus 0x100 for Ctrl, 0x200 for Alt, 0x400 for Shift, "
     "0x800 for the Windows key; 0: none.",
     _hot_key_rows, std::size(_hot_key_rows)},
    {"Result list", "What rows look like and how the mouse and keys move through them.", _list_rows,
     std::size(_list_rows)},
    {"Thumbnails", "Edges in pixels at 96 DPI.", _thumbnail_rows, std::size(_thumbnail_rows)},
    {"Numbers, dates and sizes", "How columns and the status bar write them.", _format_rows,
     std::size(_format_rows)},
    {"Right to left", "Layout for languages that are written from right to left.", _direction_rows,
     std::size(_direction_rows)},
    {"Search box", "The text box and the list below it.", _search_edit_rows, std::size(_search_edit_rows)},
    {"Search syntax", "How a text is understood.", _search_rows, std::size(_search_rows)},
    {"Last search", "What a window showed when it was closed, and what new ones begin with.", _state_rows,
     std::size(_state_rows)},
    {"Home search", "What the command for a fresh start goes back to.", _home_rows, std::size(_home_rows)},
    {"Filters", "The filter bar and its dialog.", _filter_rows, std::size(_filter_rows)},
    {"Bookmarks", "What a new bookmark holds, and the dialog's place.", _bookmark_rows,
     std::size(_bookmark_rows)},
    {"Preview", "The pane beside the list.", _preview_rows, std::size(_preview_rows)},
    {"Commands and menus", "What opening and exploring do, and what the menus hold.", _command_rows,
     std::size(_command_rows)},
    {"Renaming", "Renaming in the list and the dialogs for many items.", _rename_rows,
     std::size(_rename_rows)},
    {"Advanced search and list editor", "Their places.", _dialog_rows, std::size(_dialog_rows)},
    {"Index", "Which columns are held in memory, which of them are kept sorted, and where the database lies.",
     _index_rows, std::size(_index_rows)},
    {"Volumes", "Which volumes come into the index by themselves, and how they are followed.", _volume_rows,
     std::size(_volume_rows)},
    {"Exclusions", "What stays out of the index.", _exclude_rows, std::size(_exclude_rows)},
    {"Histories", "Of searches and of opened items.", _history_rows, std::size(_history_rows)},
    {"QTP server", "Searches over the network for other copies of this program, and downloads.", _qtp_rows,
     std::size(_qtp_rows)},
    {"HTTP server", "Searches from a browser.", _http_rows, std::size(_http_rows)},
};

const u32 config_topic_count = std::size(config_table);

void config_for_each_row(config_row_proc_t *proc, void *param) {
    for (const config_topic_t &topic : config_table) {
        for (u32 i = 0; i < topic.count; i++)
            proc(&topic.rows[i], param);
    }
}

// --- Keys of two parts -------------------------------------------------------------------------------------

static const char *const _column_names[CONFIG_COLUMN_COUNT] = {
    "name",
    "path",
    "size",
    "extension",
    "type",
    "last_write_time",
    "creation_time",
    "date_accessed",
    "attribute",
    "date_recently_changed",
    "run_count",
    "date_run",
    "file_list_filename",
};
static const char *const _font_names[CONFIG_FONT_COUNT] = {"result_list", "search_edit", "status_bar",
                                                           "header"};
// The states of rows, by twos: the second is of what the search found.
static const char *const _color_names[CONFIG_COLOR_COUNT / 2] = {
    "normal",
    "current_sort",
    "selected",
    "selected_inactive",
    "drop_target",
    "mouseover",
    "mouseover_current_sort",
    "alternate_row",
    "current_sort_alternate_row",
    "hot",
    "selected_hot",
    "selected_inactive_hot",
    "thumbnail_mouseover",
};

struct _part_t {
    const char *format; // of the first part
    config_type_t type;
    void *variable;
    const char *meaning;
};

template<size_t count>
static void _for_each_part(const char *first, const _part_t (&parts)[count], config_row_proc_t *proc,
                           void *param) {
    utf8_buf_t key;
    utf8_buf_init(&key);
    for (const _part_t &part : parts) {
        utf8_buf_printf(&key, part.format, first);
        const config_row_t row = {part.type, key.data, part.variable, part.meaning};
        proc(&row, param);
    }
    utf8_buf_kill(&key);
}

void config_for_each_column(config_row_proc_t *proc, void *param) {
    for (u32 i = 0; i < CONFIG_COLUMN_COUNT; i++) {
        config_column_t *column = &config_columns[i];
        // The first column always shows.
        if (i != 0)
            _for_each_part(_column_names[i],
                           {{"%s_column_visible", CONFIG_SMALL, &column->is_visible, "shown"}}, proc, param);
        _for_each_part(_column_names[i],
                       {{"%s_column_width", CONFIG_NUMBER, &column->width, "width in pixels"},
                        {"%s_column_pos", CONFIG_NUMBER, &column->position, "place, from 0"}},
                       proc, param);
    }
}

void config_for_each_frame_color(config_row_proc_t *proc, void *param) {
    static const config_row_t rows[] = {
        {CONFIG_COLOR, "translucent_selection_rectangle_background_color",
         &translucent_selection_rectangle_background_color, "inside of the selection's frame"},
        {CONFIG_COLOR, "translucent_selection_rectangle_border_color",
         &translucent_selection_rectangle_border_color, "border of the selection's frame"},
        {CONFIG_COLOR, "thumbnail_mouseover_border_color", &thumbnail_mouseover_border_color,
         "border of the thumbnail under the mouse"},
    };
    for (const config_row_t &row : rows)
        proc(&row, param);
}

void config_for_each_font(config_row_proc_t *proc, void *param) {
    for (u32 i = 0; i < CONFIG_FONT_COUNT; i++) {
        _for_each_part(_font_names[i],
                       {{"%s_font", CONFIG_FONT_NAME, &config_fonts[i].name, "name of the font"},
                        {"%s_font_size", CONFIG_NUMBER, &config_fonts[i].size, "its size"}},
                       proc, param);
    }
}

void config_for_each_color(config_row_proc_t *proc, void *param) {
    utf8_buf_t state;
    utf8_buf_init(&state);
    for (u32 i = 0; i < CONFIG_COLOR_COUNT; i++) {
        utf8_buf_printf(&state, i % 2 ? "%s_highlighted" : "%s", _color_names[i / 2]);
        config_color_t *color = &config_colors[i];
        _for_each_part(state.data,
                       {{"%s_foreground_color", CONFIG_COLOR, &color->foreground, "text"},
                        {"%s_background_color", CONFIG_COLOR, &color->background, "background"},
                        {"%s_bold", CONFIG_BOLD, &color->bold, "bold"}},
                       proc, param);
    }
    utf8_buf_kill(&state);
}

} // namespace findwright
