/* resource.h: the identifiers winapp.rc and winapp.c share. */
#define IDI_APP        1
#define IDD_MAIN     100
#define IDR_SETTINGS 101
#define IDC_NAME    1001
#define IDS_GREETING   1
#define IDS_FAREWELL   2
