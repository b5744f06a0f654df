@echo off
EVENTCREATE /T ERROR /L APPLICATION /ID 100 /D "INSTALLING NEW VERSION OF KESTRELGAP APP"
set PID=%1
set UPDATE_DMG=%2
set VOLUME=%3
echo %PID%
echo %UPDATE_DMG%
echo %VOLUME%
echo Close Kestrelgap Application
taskkill /F /PID %PID%
%UPDATE_DMG%
