@echo off
rem redirect.cmd: calls QBC.exe for tools that deploy software. README.md has its arguments and exit codes.
rem
rem For cmd.exe from Windows Vista on. What it keeps to, because it runs as SYSTEM over other people's data:
rem - It makes no file, starts nothing that is not named in full, asks nothing, and does not care where it was started.
rem - Delayed expansion is off: with it each "!" of a path would be lost.
rem - What comes from outside is expanded once, in double quotes: then "&", "^", "%%" and parentheses are like any
rem   other character. CALL, which expands again, gets labels and the service's path. In the body of a FOR no variable that came from
rem   outside is expanded, as a "%%L" in it would be taken for FOR's own.
rem - Lines of the log, which name other people's files, stay in variables of FOR: those are not parsed again. "echo("
rem   prints whatever follows; "echo." and "echo:" may take it for the path of a program.
setlocal EnableExtensions DisableDelayedExpansion
rem A variable of this name would hide the real one.
set "ERRORLEVEL="
rem A 32-bit tool sees the programs of 32-bit Windows in System32; the others have this name for it.
set "QB_SYSTEM=%SystemRoot%\System32"
if defined PROCESSOR_ARCHITEW6432 set "QB_SYSTEM=%SystemRoot%\Sysnative"
set "QB_HERE=%~dp0"
for %%V in (VERB COMMAND WHAT TO VOLUME SWITCHES PROGRAM SERVICE LOG AT FOUND MOUNTED NUMBER) do set "QB_%%V="

rem The other two scripts come in here with a first word of their own.
if /i "%~1"=="/bring-back" set "QB_VERB=back"
if /i "%~1"=="/wait-for-thaw" set "QB_VERB=wait"
if defined QB_VERB shift /1
if "%QB_VERB%"=="wait" goto wait_for_thaw

rem --- The arguments

if /i "%~1"=="folder" set "QB_COMMAND=RedirectFolder"
if /i "%~1"=="file" set "QB_COMMAND=RedirectFile"
if /i "%~1"=="profile" set "QB_COMMAND=RedirectUP"
if /i "%~1"=="auto" set "QB_COMMAND=AutoRedirectUP"
if not defined QB_COMMAND goto result_87
shift /1
if "%QB_COMMAND%"=="AutoRedirectUP" goto read_location
set "QB_WHAT=%~1"
if not defined QB_WHAT goto result_87
shift /1
:read_location
set "QB_TO=%~1"
if not defined QB_TO goto read_switch
if "%QB_TO:~0,1%"=="/" set "QB_TO="
if defined QB_TO shift /1
:read_switch
if "%~1"=="" goto check_what
set "QB_SWITCH="
for %%S in (/NTFS /-NTFS /Share /-Share /RedirectDefaultAndPublicProfile) do if /i "%%S"=="%~1" set "QB_SWITCH=%%S"
if not defined QB_SWITCH goto result_87
set "QB_SWITCHES=%QB_SWITCHES% %QB_SWITCH%"
shift /1
goto read_switch

rem Backslashes at an end go: before a closing quote they would make a quote of it for the program that is called.
:check_what
if "%QB_COMMAND%"=="RedirectUP" goto check_location
if "%QB_COMMAND%"=="AutoRedirectUP" goto check_location
:cut_what
if "%QB_WHAT:~-1%"=="\" (
  set "QB_WHAT=%QB_WHAT:~0,-1%"
  goto cut_what
)
if not "%QB_WHAT:~1,2%"==":\" goto result_87
:check_location
if defined QB_TO goto cut_location
if "%QB_VERB%"=="back" goto begin
goto result_87
:cut_location
if "%QB_TO:~-1%"=="\" (
  set "QB_TO=%QB_TO:~0,-1%"
  goto cut_location
)
if not defined QB_TO goto result_87
if /i "%QB_TO:~0,11%"=="\\?\Volume{" set "QB_VOLUME=1"
if "%QB_TO:~1%"==":" set "QB_TO=%QB_TO%\"
if defined QB_VOLUME set "QB_TO=%QB_TO%\"
if not defined QB_VOLUME if not "%QB_TO:~1,2%"==":\" goto result_87
rem QBC.exe refuses a volume there, and a location for the way back, but not by its exit code.
if "%QB_COMMAND%%QB_VOLUME%"=="AutoRedirectUP1" goto result_87
if "%QB_COMMAND%%QB_VERB%"=="AutoRedirectUPback" goto result_87
if "%QB_COMMAND%%QB_VERB%"=="RedirectUPback" goto result_87

rem --- What there is to do

:begin
rem CALL reads a line once more than the others: it takes "%%" for the beginning of a variable and doubles "^". Which path
rem was meant then cannot be told, and that CALL was there can neither. SET shows a value without reading it again.
set "QB_PATHS=%QB_WHAT%|%QB_TO%"
if not "%QB_PATHS:^^=%"=="%QB_PATHS%" goto result_87
set QB_PATHS| "%QB_SYSTEM%\find.exe" "%%" >nul
if not errorlevel 1 goto result_87
call :find_program
if errorlevel 1 goto failed
call :ask_status
if errorlevel 1 goto failed
call :look_up
if "%QB_FOUND%"=="elsewhere" goto result_183
call :is_link
set "QB_LINK=%ERRORLEVEL%"
if "%QB_VERB%"=="back" goto bring_back

if not defined QB_FOUND goto redirect
if "%QB_LINK%"=="0" goto result_nothing
echo It is recorded as redirected, but no link stands in its place. QBC.exe says what to do about it.
:redirect
set "QB_ARGUMENTS=/%QB_COMMAND%"
if defined QB_WHAT set QB_ARGUMENTS=%QB_ARGUMENTS% "%QB_WHAT%"
call :add_location
set QB_ARGUMENTS=%QB_ARGUMENTS%%QB_SWITCHES%
goto run

:bring_back
if defined QB_FOUND goto bring_it_back
if not "%QB_LINK%"=="0" goto result_nothing
if "%QB_COMMAND%"=="RedirectUP" goto result_nothing
if "%QB_COMMAND%"=="AutoRedirectUP" goto result_nothing
rem A name that the console's code page lacks is not found in the list.
if defined QB_TO goto bring_it_back
echo A link stands there that the list does not name. With the location as a third argument QBC.exe tries it.
goto result_1603
:bring_it_back
if not defined QB_TO if defined QB_AT set "QB_TO=%QB_AT%"
if /i "%QB_TO:~0,11%"=="\\?\Volume{" set "QB_VOLUME=1"
set "QB_ARGUMENTS=/%QB_COMMAND%"
if "%QB_COMMAND%"=="RedirectUP" set QB_ARGUMENTS=/RedirectUPDefault "%QB_WHAT%"%QB_SWITCHES%
if "%QB_COMMAND%"=="RedirectUP" goto run
if defined QB_WHAT set QB_ARGUMENTS=%QB_ARGUMENTS% "%QB_WHAT%"
if defined QB_WHAT call :add_location
set QB_ARGUMENTS=%QB_ARGUMENTS% /d

:run
if "%QB_STATUS%"=="2" goto result_1622
call :count_lines
echo QBC.exe %QB_ARGUMENTS%
"%QB_PROGRAM%" %QB_ARGUMENTS% <nul
set "QB_ENDED=%ERRORLEVEL%"
echo(
call :say_log
if not "%QB_ENDED%"=="0" goto run_failed
rem Frozen is the one refusal that it ends with 0.
call :ask_status
if "%QB_STATUS%"=="2" goto result_1622
rem The one command that leaves something to a restart.
if not "%QB_COMMAND%%QB_VERB%"=="AutoRedirectUPback" goto result_done
set "QB_TEXT=It will be deleted at the next restart"
call :in_log
if not errorlevel 1 goto result_3010
goto result_done

:run_failed
set "QB_TEXT=another instance is already running"
call :in_log
if not errorlevel 1 goto result_1618
set "QB_TEXT=Restart your computer first"
call :in_log
if not errorlevel 1 goto result_350
rem This pair is recorded, under a name that the list could not show.
set "QB_TEXT=Junction already exists for Source"
call :in_log
if not errorlevel 1 if "%QB_LINK%"=="0" goto result_nothing
if not defined QB_LOG call :ask_status
if not defined QB_LOG if errorlevel 1 goto failed
goto result_1603

:wait_for_thaw
set "QB_MINUTES=%~1"
if not defined QB_MINUTES set "QB_MINUTES=10"
if not "%~2"=="" goto result_87
rem Digits are what a one in front leaves as they are, also those that begin with a zero: an octal number otherwise.
set /a "QB_NUMBER=1%QB_MINUTES%" 2>nul
if not "%QB_NUMBER%"=="1%QB_MINUTES%" goto result_87
if %QB_NUMBER% gtr 19999 goto result_87
set "QB_MINUTES=000%QB_MINUTES%"
set /a "QB_ROUNDS=(1%QB_MINUTES:~-4% - 10000) * 6"
call :find_program
if errorlevel 1 goto failed
:wait_on
call :ask_status
set "QB_CODE=%ERRORLEVEL%"
if "%QB_CODE%"=="0" if not "%QB_STATUS%"=="2" goto result_thawed
if not "%QB_CODE%"=="0" if not "%QB_CODE%"=="1618" goto result_%QB_CODE%
set /a "QB_ROUNDS-=1"
if %QB_ROUNDS% lss 0 if "%QB_CODE%"=="1618" goto result_1618
if %QB_ROUNDS% lss 0 goto result_1622
rem Ten seconds. TIMEOUT wants a console.
"%QB_SYSTEM%\ping.exe" -n 11 127.0.0.1 >nul
goto wait_on

rem --- Steps. Each ends with 0, or with the exit code that the script is to end with.

rem QBC.exe beside this script or in the folder of the product's service, where its log is, too.
:find_program
if "%PROCESSOR_ARCHITECTURE%"=="x86" if not defined PROCESSOR_ARCHITEW6432 exit /b 1633
set "QB_KEY=HKLM\SYSTEM\CurrentControlSet\Services\QuillbayService"
for /f "tokens=1,2,*" %%A in ('%%QB_SYSTEM%%\reg.exe query %%QB_KEY%% /v ImagePath 2^>nul') do (
  if /i "%%A"=="ImagePath" set "QB_SERVICE=%%C"
)
rem Its path may stand in quotes, with words behind them, and have variables of Windows' in it.
if defined QB_SERVICE set "QB_SERVICE=%QB_SERVICE:"=|%"
if defined QB_SERVICE call set "QB_SERVICE=%QB_SERVICE%"
if defined QB_SERVICE for /f "delims=|" %%P in ("%QB_SERVICE%") do set "QB_SERVICE=%%~dpP"
if defined QB_SERVICE set "QB_LOG=%QB_SERVICE%QBC.log"
set "QB_PROGRAM=%QB_HERE%QBC.exe"
if exist "%QB_PROGRAM%" exit /b 0
set "QB_PROGRAM=%QB_SERVICE%QBC.exe"
if defined QB_SERVICE if exist "%QB_PROGRAM%" exit /b 0
exit /b 2

rem QB_STATUS: what /GetRHStatus ends with. 1 is Rimehold's absence only when the text says so.
:ask_status
"%QB_PROGRAM%" /GetRHStatus <nul >nul 2>&1
set "QB_STATUS=%ERRORLEVEL%"
if %QB_STATUS% geq 2 if %QB_STATUS% leq 9 exit /b 0
"%QB_PROGRAM%" /GetRHStatus <nul 2>nul | "%QB_SYSTEM%\find.exe" "Rimehold not installed" >nul
if not errorlevel 1 exit /b 0
"%QB_PROGRAM%" /GetRHStatus <nul 2>nul | "%QB_SYSTEM%\find.exe" "another instance is already running" >nul
if not errorlevel 1 exit /b 1618
"%QB_PROGRAM%" /GetRHStatus <nul 2>nul | "%QB_SYSTEM%\find.exe" "administrative privileges" >nul
if not errorlevel 1 exit /b 5
echo QBC.exe /GetRHStatus ended with %QB_STATUS%.
exit /b 1603

rem QB_FOUND: "same", "elsewhere", or nothing when the list does not name it. QB_AT: where it is. The command of the FOR
rem begins with "<", because of one that begins with a quote cmd.exe would take the outermost quotes away.
:look_up
for /f "delims=" %%L in ('^<nul "%%QB_PROGRAM%%" /%%QB_COMMAND%% 2^>nul') do (
  set "QB_ROW=%%L"
  call :row
)
exit /b 0
:row
if "%QB_ROW%"=="User   Profile folder" exit /b 0
set "QB_LEFT="
set "QB_RIGHT="
if "%QB_COMMAND%"=="AutoRedirectUP" goto row_of_location
set "QB_ROW=%QB_ROW:   =|%"
for /f "tokens=1* delims=|" %%A in ("%QB_ROW%") do (
  set "QB_LEFT=%%A"
  set "QB_RIGHT=%%B"
)
if not defined QB_RIGHT exit /b 0
if /i not "%QB_LEFT%"=="%QB_WHAT%" exit /b 0
set "QB_AT=%QB_RIGHT:|=   %"
for /f "delims=" %%P in ("%QB_AT%") do set "QB_PARENT=%%~dpP"
goto compare
:row_of_location
for /f "tokens=1* delims==" %%A in ("%QB_ROW%") do (
  if "%%A"=="Newly created user profile location " set "QB_RIGHT=%%B"
)
if not defined QB_RIGHT exit /b 0
set "QB_AT=%QB_RIGHT:~1%"
set "QB_PARENT=%QB_AT%\"
:compare
set "QB_FOUND=same"
if not defined QB_TO exit /b 0
if defined QB_VOLUME goto compare_volume
if /i "%QB_PARENT%"=="%QB_TO%\" exit /b 0
if /i "%QB_PARENT%"=="%QB_TO%" exit /b 0
if /i "%QB_AT%"=="%QB_TO%" if not "%QB_COMMAND%%QB_VERB%"=="%QB_COMMAND%" exit /b 0
if /i "%QB_AT%"=="%QB_TO%" if "%QB_COMMAND%"=="AutoRedirectUP" exit /b 0
set "QB_FOUND=elsewhere"
exit /b 0
rem A profile that is mounted is listed with its own path.
:compare_volume
for /f "delims= " %%V in ('%%QB_SYSTEM%%\mountvol.exe "%%QB_AT%%" /L 2^>nul') do set "QB_MOUNTED=%%V"
if /i "%QB_AT%"=="%QB_TO%" exit /b 0
if /i "%QB_MOUNTED%"=="%QB_TO%" exit /b 0
set "QB_FOUND=elsewhere"
exit /b 0

rem 0: a junction, a symbolic link or a mounted volume stands in its place, or it is no folder or file.
:is_link
if "%QB_COMMAND%"=="RedirectUP" exit /b 0
if "%QB_COMMAND%"=="AutoRedirectUP" exit /b 0
"%QB_SYSTEM%\fsutil.exe" reparsepoint query "%QB_WHAT%" >nul 2>&1
if errorlevel 1 exit /b 1
exit /b 0

:add_location
set "QB_SWITCH=/loc:"
if defined QB_VOLUME set "QB_SWITCH=/vol:"
set "QB_PLACE=%QB_TO%"
if "%QB_TO:~-1%"=="\" set "QB_PLACE=%QB_TO%\"
set QB_ARGUMENTS=%QB_ARGUMENTS% "%QB_SWITCH%%QB_PLACE%"
exit /b 0

rem QB_LINES: how many the log has before the run. TYPE makes the console's characters of UTF-16.
:count_lines
set "QB_LINES=0"
if not defined QB_LOG exit /b 0
if not exist "%QB_LOG%" exit /b 0
for /f %%N in ('type "%%QB_LOG%%" ^| %%QB_SYSTEM%%\find.exe /c /v ""') do set "QB_LINES=%%N"
exit /b 0
:say_log
if not defined QB_LOG echo There is no log, because the product's service is not installed.
if not defined QB_LOG exit /b 0
if not exist "%QB_LOG%" exit /b 0
set "QB_SKIP="
if not "%QB_LINES%"=="0" set "QB_SKIP=skip=%QB_LINES% "
echo "%QB_LOG%" says of this run:
for /f "%QB_SKIP%delims=" %%L in ('type "%%QB_LOG%%"') do echo(%%L
exit /b 0
rem 0: the run's part of the log has QB_TEXT.
:in_log
set "QB_LAST=0"
if not defined QB_LOG exit /b 1
if not exist "%QB_LOG%" exit /b 1
for /f "delims=[]" %%N in ('type "%%QB_LOG%%" ^| %%QB_SYSTEM%%\find.exe /n "%%QB_TEXT%%"') do set "QB_LAST=%%N"
if %QB_LAST% gtr %QB_LINES% exit /b 0
exit /b 1

rem --- How it ends: one line that begins with "Result", and the exit code.

:failed
set "QB_CODE=%ERRORLEVEL%"
goto result_%QB_CODE%
:result_done
echo Result 0: done.
exit /b 0
:result_nothing
echo Result 0: nothing to do.
exit /b 0
:result_thawed
echo Result 0: thawed.
exit /b 0
:result_2
echo Result 2: QBC.exe is neither beside this script nor in the folder of the product's service.
exit /b 2
:result_5
echo Result 5: QBC.exe needs an elevated administrator.
exit /b 5
:result_87
echo Result 87: wrong arguments. In double quotes, paths written out with their drive, without "%%" and "^^":
echo   redirect.cmd folder FOLDER LOCATION [/-NTFS] [/-Share]
echo   redirect.cmd file FILE LOCATION [/-NTFS]
echo   redirect.cmd profile USER LOCATION [/-NTFS] [/-Share]
echo   redirect.cmd auto LOCATION [/RedirectDefaultAndPublicProfile]
echo   bring-back.cmd folder FOLDER [LOCATION]
echo   bring-back.cmd file FILE [LOCATION]
echo   bring-back.cmd profile USER [/-NTFS] [/-Share]
echo   bring-back.cmd auto
echo   wait-for-thaw.cmd [MINUTES]
exit /b 87
:result_183
echo Result 183: it is redirected already, but to another place: "%QB_AT%". Nothing was done.
exit /b 183
:result_350
echo Result 350: nothing was done. The computer is to be restarted first.
exit /b 350
:result_1603
echo Result 1603: failed. Each file is whole at its old place or at its new one; the log says why, and which.
exit /b 1603
:result_1618
echo Result 1618: another QBC.exe is running. Try again later.
exit /b 1618
:result_1622
echo Result 1622: the computer is Frozen. Nothing was done.
exit /b 1622
:result_1633
echo Result 1633: QBC.exe needs 64-bit Windows.
exit /b 1633
:result_3010
echo Result 3010: done. The rest follows at the next restart.
exit /b 3010
