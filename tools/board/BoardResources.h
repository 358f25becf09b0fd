// Identifiers of the board's resources (board.rc) and of its dialogs' controls.
#pragma once

#define IDI_BOARD 1

#define IDD_SOUND 100
#define IDC_SOUND_NAME 101
#define IDC_SOUND_HOTKEY 102
#define IDC_SOUND_NO_HOTKEY 103
#define IDC_SOUND_VOLUME 104
#define IDC_SOUND_FILE 105
#define IDC_SOUND_COLOR 106

#define IDD_PAGE_NAME 200
#define IDC_PAGE_NAME 201

#define IDD_SETTINGS 300
#define IDC_SET_OVERLAP 301
#define IDC_SET_PRESS_AGAIN 302
#define IDC_SET_STOP_HOTKEY 303
#define IDC_SET_MONITOR 304
#define IDC_SET_MONITOR_DEVICE 305
#define IDC_SET_MONITOR_VOLUME 306
#define IDC_SET_PTT 307
#define IDC_SET_PTT_KEY 308
#define IDC_SET_PTT_TAIL 309
#define IDC_SET_TRAY 310

#define IDD_EFFECT 400
#define IDC_EFFECT_MIC 401
#define IDC_EFFECT_GAIN 402
#define IDC_EFFECT_GAIN_SPIN 403
#define IDC_EFFECT_BLOCK 404

#define IDC_REFUSAL 900
