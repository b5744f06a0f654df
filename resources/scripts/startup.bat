start /D %1 Kestrelgap.exe
