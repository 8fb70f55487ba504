// The settings: one process-wide variable each, bound to its key by the table of config_table.cpp. The
// initial values are the defaults.
//
// A variable has the name of its key. A key of a single word has `config_` in front, since locals everywhere
// have such names. A few settings stand with the modules that they belong to: max_threads, reuse_threads
// (os/os.h), the index's columns (db/db_layout.h), extended_information_cache_monitor
// (db/db_extended_info.h), those of changes, folders and histories (track), and those of the search syntax
// (query/db_term.h, db_query_value.h, db_search_expand.h).
//
// Any thread may read, only the main thread writes: each is a word. Texts belong to `config` and are heap
// strings, never 0 between config_init and config_kill; they are changed with utf8_replace_string.
#pragma once

#include "base/types.h"

namespace findwright {

// On Windows: settings and data lie in the user's application data, not beside the program. Kept in the file
// beside the program alone. Unused elsewhere.
inline u32 app_data;
// Start with administrator rights.
inline u32 run_as_admin;

// Search window. Where the search window stood when it was last closed, in pixels, and how it looks.
inline i32 window_x;
inline i32 window_y;
inline i32 window_wide;
inline i32 window_high;
inline u32 config_maximized;
inline u32 config_minimized;
inline u32 config_fullscreen;
inline u32 config_ontop;
inline u32 config_snap;
inline i32 config_snaplen = 10;
inline char *window_title_format;
inline u32 status_bar_visible = 1;
inline u32 show_in_taskbar = 1;
inline u32 hide_on_close;
inline u32 close_on_execute;
inline u32 allow_multiple_windows;
inline u32 new_inherit = 1;
inline i32 auto_size_1 = 512;
inline i32 auto_size_2 = 640;
inline i32 auto_size_3 = 768;
inline i32 auto_size_aspect_ratio_x = 9;
inline i32 auto_size_aspect_ratio_y = 7;
inline i32 auto_size_path_x = 1;
inline i32 auto_size_path_y = 2;
inline i32 text_size;
inline i32 min_zoom = -6;
inline i32 max_zoom = 27;
inline i32 config_dpi = 96;
inline u32 themed_toolbar = 1;
inline u32 double_buffer = 1;
inline u32 display_full_path_name;

// Program. Start, instances and languages.
inline i32 config_language;
inline char *instance_name;
inline u32 allow_multiple_instances;
inline u32 run_in_background = 1;
inline u32 check_for_updates_on_startup;
inline u32 beta_updates;
inline u32 config_debug;
inline char *service_pipe_name;
inline u32 config_ipc = 1;
inline i32 max_recv_size = 8388608;
inline u32 last_options_page;
inline u32 last_export_type;
inline u32 config_lvm = 1;
inline u32 config_winmm;
inline u32 config_ntcreatefile = 1;
inline i32 db_update_thread_priority = -15;

// Tray icon. The icon beside the clock.
inline u32 show_tray_icon = 1;
inline u32 minimize_to_tray;
inline u32 single_click_tray;
inline u32 toggle_window_from_tray_icon;
inline u32 allow_multiple_windows_from_tray;
inline char *tray_show_command_line;
inline char *taskbar_notification_title_format;

// System keys. Keys that work in every program: the key's code, plus 0x100 for Ctrl, 0x200 for Alt, 0x400 for
// Shift, 0x800 for the Windows key; 0: none.
inline i32 new_window_key;
inline i32 show_window_key;
inline i32 toggle_window_key;

// Result list. What rows look like and how the mouse and keys move through them.
inline u32 config_view;
inline i32 listview_item_high;
inline i32 header_high;
inline u32 alternate_row_color;
inline u32 show_mouseover;
inline u32 show_highlighted_search_terms = 1;
inline u32 full_row_select;
inline u32 draw_focus_rect = 1;
inline u32 icons_only;
inline u32 alpha_select;
inline i32 translucent_selection_rectangle_alpha = 70;
inline u32 single_click_open;
inline u32 underline_icon_titles;
inline u32 double_click_path;
inline u32 wrap_focus;
inline u32 sticky_vscroll_bottom = 1;
inline u32 reset_vscroll_on_search = 1;
inline u32 clear_selection_on_search = 1;
inline u32 hide_empty_search_results;
inline u32 auto_scroll_view;
inline i32 auto_scroll_repeat_delay = 250;
inline i32 auto_scroll_repeat_rate = 50;
inline u32 update_display_after_scroll;
inline u32 update_display_after_mask = 1;
inline u32 ctrl_mouse_wheel_action = 1;
inline u32 config_tooltips = 1;
inline u32 listview_tooltips = 1;
inline u32 show_detailed_listview_tooltips;
inline u32 load_icon_priority;
inline u32 load_thumbnail_priority;
inline u32 load_fileinfo_priority;

// Thumbnails. Edges in pixels at 96 DPI.
inline i32 thumbnail_size = 64;
inline i32 min_thumbnail_size = 32;
inline i32 max_thumbnail_size = 256;
inline i32 medium_thumbnail_size = 64;
inline i32 large_thumbnail_size = 128;
inline i32 extra_large_thumbnail_size = 256;
inline i32 thumbnail_load_size;
inline u32 thumbnail_fill;

// Numbers, dates and sizes. How columns and the status bar write them.
inline u32 size_format = 2;
inline u32 statusbar_size_format;
inline char *date_format;
inline char *time_format;
inline u32 date_descending_first;
inline u32 size_descending_first;
inline u32 show_selected_item_in_statusbar = 1;
inline char *statusbar_selected_item_format;
inline u32 show_size_in_statusbar;
inline u32 show_number_of_results_with_selection;

// Right to left. Layout for languages that are written from right to left.
inline u32 rtl_listview_edit;
inline u32 force_path_ltr_order = 1;
inline u32 force_path_left_align = 1;
inline u32 invert_layout;
inline u32 update_layout_on_input_language_change;
inline u32 control_shift_action = 3;
inline u32 change_search_rtl_reading_action = 3;
inline u32 invert_layout_action = 3;

// Search box. The text box and the list below it.
inline u32 search_as_you_type = 1;
inline u32 always_update_query_on_search_parameter_change;
inline u32 focus_search_on_activate;
inline u32 select_search_on_mouse_click = 1;
inline u32 select_search_on_focus_mode = 1;
inline u32 select_search_on_set_mode = 2;
inline u32 search_edit_move_caret_to_selection_end;

// Search syntax. How a text is understood.
inline u32 match_case;
inline u32 match_whole_word;
inline u32 match_path;
inline u32 match_diacritics;
inline u32 match_regex;
inline u32 replace_exact_trailing_star_dot_star_with_star = 1;

// Last search. What a window showed when it was closed, and what new ones begin with.
inline char *config_search;
inline char *config_filter;
inline char *filter_findwright_name;
inline char *config_sort;
inline u32 sort_ascending = 1;
inline u32 always_keep_sort;
inline u32 config_index;
inline char *index_file_list;
inline char *index_qtp_server;
inline u32 index_link_type = 1;

// Home search. What the command for a fresh start goes back to.
inline u32 home_match_case;
inline u32 home_match_whole_word;
inline u32 home_match_path;
inline u32 home_match_diacritics;
inline u32 home_regex;
inline u32 home_search = 1;
inline u32 home_filter;
inline u32 home_sort;
inline u32 home_view;
inline u32 home_index = 1;

// Filters. The filter bar and its dialog.
inline u32 filters_visible;
inline u32 filters_right_align = 1;
inline u32 filters_tab_stop;
inline i32 filters_wide = 128;
inline i32 filter_organize_x;
inline i32 filter_organize_y;
inline i32 filter_organize_wide;
inline i32 filter_organize_high;

// Bookmarks. What a new bookmark holds, and the dialog's place.
inline u32 bookmark_remember_case = 1;
inline u32 bookmark_remember_wholeword = 1;
inline u32 bookmark_remember_path = 1;
inline u32 bookmark_remember_diacritic = 1;
inline u32 bookmark_remember_regex = 1;
inline u32 bookmark_remember_sort = 1;
inline u32 bookmark_remember_filter = 1;
inline u32 bookmark_remember_index = 1;
inline u32 bookmark_remember_search = 1;
inline i32 bookmark_remember_view = 1;
inline i32 bookmark_organize_x;
inline i32 bookmark_organize_y;
inline i32 bookmark_organize_wide;
inline i32 bookmark_organize_high;

// Preview. The pane beside the list.
inline u32 preview_visible;
inline i32 preview_x = 640;
inline u32 preview_tab_stop;
inline u32 preview_fill;
inline i32 preview_mag_filter;
inline i32 preview_min_filter;
inline i32 preview_load_size;
inline u32 show_preview_handlers_in_preview_pane;

// Commands and menus. What opening and exploring do, and what the menus hold.
inline char *open_folder_command2;
inline char *open_file_command2;
inline char *open_path_command2;
inline char *explore_command2;
inline char *explore_path_command2;
inline i32 open_many_files_warning_threshold = 16;
inline char *custom_verb01;
inline char *custom_verb02;
inline char *custom_verb03;
inline char *custom_verb04;
inline char *custom_verb05;
inline char *custom_verb06;
inline char *custom_verb07;
inline char *custom_verb08;
inline char *custom_verb09;
inline char *custom_verb10;
inline char *custom_verb11;
inline char *custom_verb12;
inline u32 context_menu_type;
inline u32 single_parent_context_menu;
inline u32 menu_escape_amp = 1;
inline u32 menu_folders;
inline u32 show_copy_name = 2;
inline u32 show_copy_path = 2;
inline u32 show_copy_full_name = 2;
inline u32 show_open_path = 2;
inline u32 show_explore = 2;
inline u32 show_explore_path = 2;
inline u32 double_quote_copy_as_path;
inline u32 copy_path_folder_append_backslash;

// Renaming. Renaming in the list and the dialogs for many items.
inline u32 rename_select_filepart_only;
inline u32 rename_move_caret_to_selection_end;
inline u32 rename_nav;
inline u32 rename_match_case;
inline u32 rename_regex;
inline i32 rename_x;
inline i32 rename_y;
inline i32 rename_wide;
inline i32 rename_high;
inline u32 advanced_copy_to_match_case;
inline u32 advanced_copy_to_regex;
inline i32 advanced_copy_to_x;
inline i32 advanced_copy_to_y;
inline i32 advanced_copy_to_wide;
inline i32 advanced_copy_to_high;
inline u32 advanced_move_to_match_case;
inline u32 advanced_move_to_regex;
inline i32 advanced_move_to_x;
inline i32 advanced_move_to_y;
inline i32 advanced_move_to_wide;
inline i32 advanced_move_to_high;

// Advanced search and list editor. Their places.
inline i32 advanced_search_x;
inline i32 advanced_search_y;
inline i32 advanced_search_wide;
inline i32 advanced_search_high;
inline i32 advanced_search_page_y_offset;
inline i32 advanced_search_focus_id;
inline u32 advanced_search_warnings = 1;
inline i32 editor_x;
inline i32 editor_y;
inline i32 editor_wide;
inline i32 editor_high;
inline u32 editor_maximized;
inline u32 file_list_relative_paths;

// Index. Where the database lies; its columns are told in db/db_layout.h.
inline char *db_location;
inline u32 db_multi_user_filename;
inline u32 db_compress;

// Volumes. Which volumes come into the index by themselves, and how they are followed.
inline u32 auto_include_fixed_volumes = 1;
inline u32 auto_include_removable_volumes;
inline u32 auto_remove_offline_ntfs_volumes = 1;
inline u32 auto_include_fixed_refs_volumes = 1;
inline u32 auto_include_removable_refs_volumes;
inline u32 auto_remove_offline_refs_volumes = 1;
inline u32 find_mount_points_on_removable_volumes;
inline i32 refs_skip_buffer_size;
inline i32 refs_read_to_skip_threshold;
inline u32 monitor_thread_mode_background = 1;
inline u32 folder_update_rescan_all_on_allevents;
inline u32 folder_update_rescan_all_on_updatedir;
inline u32 folder_update_ignore_updatedir;

// Exclusions. What stays out of the index.
inline u32 exclude_list_enabled = 1;
inline u32 exclude_hidden_files_and_folders;
inline u32 exclude_system_files_and_folders;
inline char *include_only_files;
inline char *exclude_files;

// Histories. Of searches and of opened items.
inline u32 search_history_enabled;
inline u32 search_history_keep_forever = 1;
inline i32 search_history_days_to_keep = 90;
inline u32 search_history_always_suggest;
inline u32 search_history_always_suggest_extend_toolbar;
inline i32 search_history_visible_count_max = 12;
inline i32 search_history_always_suggest_visible_count_max = 1;
inline i32 search_history_show_all_max = 256;
inline i32 search_history_suggestion_max = 256;
inline i32 search_history_show_all_sort = 2;
inline i32 search_history_suggestion_sort = 1;
inline u32 search_history_show_above;
inline u32 search_history_sort = 2;
inline u32 search_history_sort_ascending;
inline i32 search_history_x;
inline i32 search_history_y;
inline i32 search_history_wide;
inline i32 search_history_high;
inline i32 search_history_column_search_wide = 208;
inline i32 search_history_column_search_order;
inline i32 search_history_column_count_wide = 128;
inline i32 search_history_column_count_order = 1;
inline i32 search_history_column_date_wide = 128;
inline i32 search_history_column_date_order = 2;

// QTP server. Searches over the network for other copies of this program, and downloads.
inline u32 qtp_server_enabled;
inline i32 qtp_server_port = 21;
inline char *qtp_server_bindings;
inline char *qtp_server_username;
inline char *qtp_server_password;
inline char *qtp_server_welcome_message;
inline u32 qtp_server_logging_enabled = 1;
inline char *qtp_server_log_file_name;
inline i32 qtp_server_log_max_size = 4194304;
inline i32 qtp_server_log_delta_size = 524288;
inline u32 qtp_server_allow_file_download = 1;

// HTTP server. Searches from a browser.
inline u32 http_server_enabled;
inline i32 http_server_port = 80;
inline char *http_server_bindings;
inline char *http_title_format;
inline char *http_server_username;
inline char *http_server_password;
inline char *http_server_home;
inline char *http_server_default_page;
inline i32 http_server_items_per_page = 32;
inline u32 http_server_logging_enabled = 1;
inline char *http_server_log_file_name;
inline i32 http_server_log_max_size = 4194304;
inline i32 http_server_log_delta_size = 524288;
inline u32 http_server_allow_file_download = 1;
inline u32 http_server_allow_no_password;
inline char *http_server_host_names;

// Colours of the frame that is pulled over the list to select; as in config_color_t.
inline u32 translucent_selection_rectangle_background_color;
inline u32 translucent_selection_rectangle_border_color;
inline u32 thumbnail_mouseover_border_color;

} // namespace findwright
