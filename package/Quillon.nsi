; Setup package for Quillon: installs Quillon.dll, quillon.exe and
; quillon-board.exe into Program Files (which the audio service's account can
; read), registers the effect, adds the board to the Start menu of every user,
; offers to attach the effect to the default microphone, and adds an entry to
; Programs and Features whose uninstaller detaches every microphone first.
;
; makensis -DVERSION=1.8.0 -DARCH=x64|arm64 -DBIN=<folder with the files> -DOUTFILE=<setup.exe> Quillon.nsi

Unicode true
!if "${ARCH}" == "x64"
  Target amd64-unicode
!else
  ; No ARM64 stub exists; Windows on ARM64 runs the x86 one emulated.
  Target x86-unicode
!endif
SetCompressor /SOLID lzma
RequestExecutionLevel admin

!include LogicLib.nsh
!include x64.nsh

!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Quillon"
!define BOARD_SHORTCUT "$SMPROGRAMS\Quillon Board.lnk"

Name "Quillon ${VERSION} (${ARCH})"
OutFile "${OUTFILE}"
InstallDir "$PROGRAMFILES64\Marrowin\Quillon"
ShowInstDetails show
ShowUninstDetails show

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Function .onInit
  SetRegView 64
  !if "${ARCH}" == "x64"
    ${IfNot} ${IsNativeAMD64}
  !else
    ${IfNot} ${IsNativeARM64}
  !endif
    MessageBox MB_ICONSTOP "This setup is for Windows on ${ARCH}; the audio service of this Windows cannot load it." /SD IDOK
    Abort
  ${EndIf}
FunctionEnd

Function un.onInit
  SetRegView 64
FunctionEnd

Section "Quillon"
  SetOutPath "$INSTDIR"
  File "${BIN}\Quillon.dll"
  File "${BIN}\quillon.exe"
  File "${BIN}\quillon-board.exe"
  WriteUninstaller "$INSTDIR\uninstall.exe"

  nsExec::ExecToLog '"$INSTDIR\quillon.exe" register'
  Pop $0
  ${If} $0 != 0
    MessageBox MB_ICONSTOP "Quillon could not be registered (quillon register exited with $0)." /SD IDOK
    SetErrorLevel 1
    Abort
  ${EndIf}

  ; The board in the Start menu of every user.
  SetShellVarContext all
  CreateShortcut "${BOARD_SHORTCUT}" "$INSTDIR\quillon-board.exe" "" "$INSTDIR\quillon-board.exe" 0 SW_SHOWNORMAL "" "Play sounds into your microphone"

  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "Quillon"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\quillon-board.exe"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Marrowin"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1

  ; A silent install attaches nothing: that is the administrator's choice.
  ${IfNot} ${Silent}
    MessageBox MB_YESNO|MB_ICONQUESTION "Attach Quillon to the default microphone now?$\r$\n$\r$\nIts own effects are backed up and keep running before Quillon. The audio service restarts, so sound stops for a moment. 'quillon detach' restores the microphone." IDNO done
    nsExec::ExecToLog '"$INSTDIR\quillon.exe" attach --default'
    Pop $0
    ${If} $0 != 0
      MessageBox MB_ICONEXCLAMATION "Quillon was installed but not attached (see the details). Attach it later with 'quillon attach' as Administrator." /SD IDOK
    ${EndIf}
    done:
  ${EndIf}
SectionEnd

Section "Uninstall"
  nsExec::ExecToLog '"$INSTDIR\quillon.exe" detach --all'
  Pop $0
  ${If} $0 != 0
    MessageBox MB_ICONSTOP "The microphones could not be restored (quillon detach --all exited with $0); nothing was removed." /SD IDOK
    SetErrorLevel 1
    Abort
  ${EndIf}
  nsExec::ExecToLog '"$INSTDIR\quillon.exe" unregister'
  Pop $0
  ; The audio service may still hold the library until it restarts.
  Delete /REBOOTOK "$INSTDIR\Quillon.dll"
  Delete "$INSTDIR\quillon.exe"
  ; A board still running for some user is removed at the next restart.
  Delete /REBOOTOK "$INSTDIR\quillon-board.exe"
  SetShellVarContext all
  Delete "${BOARD_SHORTCUT}"
  Delete "$INSTDIR\uninstall.exe"
  RMDir /REBOOTOK "$INSTDIR"
  RMDir "$INSTDIR\.."
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
SectionEnd
