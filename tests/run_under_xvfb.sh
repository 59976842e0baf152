#!/bin/sh
# Runs one GL test program under a virtual X server with Mesa's software renderer.
# Exit code 77 (skipped) where no virtual server can be had.
command -v xvfb-run >/dev/null 2>&1 || { echo "xvfb-run not installed: GL tests skipped"; exit 77; }
unset QT_QPA_PLATFORM
export LIBGL_ALWAYS_SOFTWARE=1
exec xvfb-run -a -s "-screen 0 1280x720x24" "$@"
