@echo off
rem wait-for-thaw.cmd [MINUTES]: waits until Rimehold lets changes stay. redirect.cmd, beside it, does the work.
"%~dp0redirect.cmd" /wait-for-thaw %*
