@echo off
rem bring-back.cmd: the inverse of redirect.cmd, which does the work and is to stand beside it.
"%~dp0redirect.cmd" /bring-back %*
