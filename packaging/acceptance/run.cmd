@echo off
rem run.cmd [/y] [/quick]: runs Zentpost's tests on this machine; README.txt says how.
rem Exit code: 0 all passed; 1 something failed; 2 nothing was run.
setlocal
set ACCEPTANCE=x86
if /i "%PROCESSOR_ARCHITECTURE%"=="AMD64" set ACCEPTANCE=x64
if /i "%PROCESSOR_ARCHITEW6432%"=="AMD64" set ACCEPTANCE=x64
"%~dp0%ACCEPTANCE%\acceptance.exe" %*
exit /b %ERRORLEVEL%
