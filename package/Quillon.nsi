; Setup package for Quillon: installs Quillon.dll, quillon.exe and
; quillon-board.exe into Program Files (which the audio service's account can
; read), registers the effect, adds the board to the Start menu of every user,
; offers to attach the effect to the default microphone, checks that the audio
; engine runs it (its last page says what the check found, and every install
; keeps the findings in install.log beside the programs), and adds an entry to
; Programs and Features whose uninstaller detaches every microphone first.
;
; Installing over an installed Quillon works while the audio service holds
; the library: a file that cannot be overwritten is renamed aside, the new one
; takes its place, and the old one is removed at the next restart. When any
; file cannot be replaced, every file is put back as it was and the setup
; fails, naming the file.
;
; makensis -DVERSION=1.8.0 -DARCH=x64|arm64 -DBIN=<folder with the programs>
;          -DLIBRARY=<Quillon.dll> -DICON=<quillon.ico> -DOUTFILE=<setup.exe>
;          [-DSIGN=<sign.sh>] [-DUNINSTALLER_COPY=<uninstall.exe>] Quillon.nsi
; SIGN signs the uninstaller inside the setup, then the setup;
; UNINSTALLER_COPY keeps a copy of the uninstaller as it is packed.

Unicode true
!ifdef SIGN
  !uninstfinalize '"${SIGN}" "%1"' = 0
  !finalize '"${SIGN}" "%1"' = 0
!endif
!ifdef UNINSTALLER_COPY
  !uninstfinalize 'cp "%1" "${UNINSTALLER_COPY}"' = 0
!endif
!if "${ARCH}" == "x64"
  Target amd64-unicode
!else
  ; No ARM64 stub exists; Windows on ARM64 runs the x86 one emulated.
  Target x86-unicode
!endif
SetCompressor /SOLID lzma
RequestExecutionLevel admin

!include LogicLib.nsh
!include nsDialogs.nsh
!include x64.nsh

!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Quillon"
!define BOARD_SHORTCUT "$SMPROGRAMS\Quillon Board.lnk"
!define INSTALL_LOG "$INSTDIR\install.log"

Name "Quillon ${VERSION} (${ARCH})"
OutFile "${OUTFILE}"
Icon "${ICON}"
UninstallIcon "${ICON}"
VIProductVersion "${VERSION}.0"
VIFileVersion "${VERSION}.0"
VIAddVersionKey /LANG=1033 "ProductName" "Quillon"
VIAddVersionKey /LANG=1033 "CompanyName" "Marrowin"
VIAddVersionKey /LANG=1033 "FileDescription" "Quillon setup"
VIAddVersionKey /LANG=1033 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "LegalCopyright" "Copyright (C) 2026 the Quillon developers"
InstallDir "$PROGRAMFILES64\Marrowin\Quillon"
ShowInstDetails show
ShowUninstDetails show

Page directory
Page instfiles
Page custom CheckPage
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

Var checkExit

; The last page: the check's verdict in words, and its findings with their fixes.
Function CheckPage
  nsDialogs::Create 1018
  Pop $0
  ${If} $checkExit == 0
    StrCpy $1 "Quillon is installed and the audio engine runs it: programs that record from your microphone hear what Quillon plays."
  ${Else}
    StrCpy $1 "Quillon is installed, but it does not run yet. The check found what is below; each problem comes with its fix. Run 'quillon check --fix' as Administrator, or the board's Fix button, to make the fixes that can be made."
  ${EndIf}
  ${NSD_CreateLabel} 0 0 100% 30u "$1"
  Pop $0
  nsDialogs::CreateControl EDIT ${DEFAULT_STYLES}|${WS_TABSTOP}|${WS_VSCROLL}|${ES_MULTILINE}|${ES_READONLY}|${ES_AUTOVSCROLL} ${WS_EX_CLIENTEDGE} 0 34u 100% -34u ""
  Pop $2
  ClearErrors
  FileOpen $3 "${INSTALL_LOG}" r
  ${IfNot} ${Errors}
    ${Do}
      FileReadUTF16LE $3 $4
      ${If} ${Errors}
        ${Break}
      ${EndIf}
      SendMessage $2 ${EM_SETSEL} -1 -1
      SendMessage $2 ${EM_REPLACESEL} 0 "STR:$4"
    ${Loop}
    FileClose $3
    ; From the top: the findings come before the verdict.
    SendMessage $2 ${EM_SETSEL} 0 0
    SendMessage $2 ${EM_SCROLLCARET} 0 0
  ${EndIf}
  nsDialogs::Show
FunctionEnd

Function un.onInit
  SetRegView 64
FunctionEnd

; The name beside $INSTDIR\<name> that an old file is renamed to:
; "<name>.replaced-<n>", the first that is free. Leaves it in $R9.
!macro AsideName NAME
  StrCpy $R8 1
  ${Do}
    StrCpy $R9 "$INSTDIR\${NAME}.replaced-$R8"
    ${IfNot} ${FileExists} "$R9"
      ${Break}
    ${EndIf}
    IntOp $R8 $R8 + 1
  ${Loop}
!macroend

; Moves $INSTDIR\<name> aside when it is there; its new name goes to VAR
; ("" when there was none). Jumps to FAILED when it cannot be moved.
!macro MoveAside NAME VAR FAILED
  StrCpy ${VAR} ""
  ${If} ${FileExists} "$INSTDIR\${NAME}"
    !insertmacro AsideName "${NAME}"
    ClearErrors
    Rename "$INSTDIR\${NAME}" "$R9"
    ${If} ${Errors}
      StrCpy $R7 "${NAME}"
      Goto ${FAILED}
    ${EndIf}
    StrCpy ${VAR} "$R9"
  ${EndIf}
!macroend

; Puts a file moved aside back in its place, over whatever was written there.
!macro PutBack NAME VAR
  ${If} ${VAR} != ""
    Delete "$INSTDIR\${NAME}"
    Rename "${VAR}" "$INSTDIR\${NAME}"
  ${EndIf}
!macroend

; Removes a file moved aside now, or at the next restart when it is still in use.
!macro RemoveAside VAR
  ${If} ${VAR} != ""
    Delete /REBOOTOK "${VAR}"
  ${EndIf}
!macroend

!macro WriteFile NAME SOURCE FAILED
  ClearErrors
  File "/oname=${NAME}" "${SOURCE}"
  ${If} ${Errors}
    StrCpy $R7 "${NAME}"
    Goto ${FAILED}
  ${EndIf}
!macroend

; Deletes $INSTDIR\<name>, or moves it aside and removes it at the next restart.
!macro RemoveInUse NAME
  Delete "$INSTDIR\${NAME}"
  ${If} ${FileExists} "$INSTDIR\${NAME}"
    !insertmacro AsideName "${NAME}"
    Rename "$INSTDIR\${NAME}" "$R9"
    Delete /REBOOTOK "$R9"
  ${EndIf}
!macroend

Var asideLibrary
Var asideCommand
Var asideBoard

Section "Quillon"
  SetOutPath "$INSTDIR"
  SetOverwrite try
  ; What earlier upgrades moved aside and is no longer in use.
  Delete "$INSTDIR\*.replaced-*"

  ; The files in place are moved aside first (a loaded library can be
  ; renamed, not overwritten), then the new ones written.
  !insertmacro MoveAside "Quillon.dll" $asideLibrary replaceFailed
  !insertmacro MoveAside "quillon.exe" $asideCommand replaceFailed
  !insertmacro MoveAside "quillon-board.exe" $asideBoard replaceFailed
  !insertmacro WriteFile "Quillon.dll" "${LIBRARY}" replaceFailed
  !insertmacro WriteFile "quillon.exe" "${BIN}\quillon.exe" replaceFailed
  !insertmacro WriteFile "quillon-board.exe" "${BIN}\quillon-board.exe" replaceFailed
  Goto replaced
  replaceFailed:
    !insertmacro PutBack "Quillon.dll" $asideLibrary
    !insertmacro PutBack "quillon.exe" $asideCommand
    !insertmacro PutBack "quillon-board.exe" $asideBoard
    MessageBox MB_ICONSTOP "Cannot replace $INSTDIR\$R7: it is in use or cannot be written. Nothing was changed." /SD IDOK
    DetailPrint "Cannot replace $INSTDIR\$R7; nothing was changed."
    SetErrorLevel 2
    Abort
  replaced:
  !insertmacro RemoveAside $asideLibrary
  !insertmacro RemoveAside $asideCommand
  !insertmacro RemoveAside $asideBoard
  WriteUninstaller "$INSTDIR\uninstall.exe"

  nsExec::ExecToLog '"$INSTDIR\quillon.exe" register'
  Pop $0
  ${If} $0 != 0
    MessageBox MB_ICONSTOP "Quillon could not be registered (quillon register exited with $0)." /SD IDOK
    SetErrorLevel 1
    Abort
  ${EndIf}

  ; An upgrade: the audio service loads the new library when it restarts.
  ${If} $asideLibrary != ""
    nsExec::ExecToLog '"$INSTDIR\quillon.exe" restart-audio'
    Pop $0
    ${If} $0 != 0
      MessageBox MB_ICONEXCLAMATION "The audio service could not be restarted (see the details); the new Quillon runs after the next restart of Windows." /SD IDOK
    ${EndIf}
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

  ; Whether the audio engine runs Quillon, kept in the install log (a silent
  ; install shows no page) and shown on the last page.
  nsExec::ExecToLog '"$INSTDIR\quillon.exe" check --report "${INSTALL_LOG}"'
  Pop $checkExit
  DetailPrint "quillon check exited with $checkExit; its findings are in ${INSTALL_LOG}"
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
  ; The audio service may hold the library until it restarts, and a board may
  ; still run for some user. What is in use is moved aside and removed at the
  ; next restart, so that a Quillon installed again meanwhile is not removed.
  !insertmacro RemoveInUse "Quillon.dll"
  Delete "$INSTDIR\quillon.exe"
  Delete "${INSTALL_LOG}"
  !insertmacro RemoveInUse "quillon-board.exe"
  Delete /REBOOTOK "$INSTDIR\*.replaced-*"
  SetShellVarContext all
  Delete "${BOARD_SHORTCUT}"
  Delete "$INSTDIR\uninstall.exe"
  RMDir /REBOOTOK "$INSTDIR"
  RMDir "$INSTDIR\.."
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
SectionEnd
