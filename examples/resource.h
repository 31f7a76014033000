// resource.h: the identifiers shared by app.rc and the program's code.
#define IDI_APP              1
#define IDR_MAINMENU       100
#define IDR_ACCEL          101
#define IDR_DEFAULTS       102
#define IDD_ABOUT          200
#define IDD_OPTIONS        201

#define IDC_NAME          1001
#define IDC_AUTOSAVE      1002
#define IDC_INTERVAL      1003
#define IDC_THEME         1004
#define IDC_THEME_LIGHT   1005
#define IDC_THEME_DARK    1006
#define IDC_VERSION       1007

#define IDM_FILE_NEW     40001
#define IDM_FILE_OPEN    40002
#define IDM_FILE_SAVE    40003
#define IDM_FILE_EXIT    40004
#define IDM_EDIT_UNDO    40010
#define IDM_EDIT_CUT     40011
#define IDM_EDIT_COPY    40012
#define IDM_EDIT_PASTE   40013
#define IDM_VIEW_OPTIONS 40020
#define IDM_HELP_ABOUT   40030

#define IDS_APP_TITLE       1
#define IDS_READY           2
#define IDS_UNSAVED         3
#define IDS_FILE_FILTER    16
#define IDS_ERR_OPEN       17
