#!/usr/bin/env bash
# The long load runs, which the test suite runs only in small: under AddressSanitizer and
# LeakSanitizer (the build-asan/ build of scripts/test.sh --asan), 500 uploads at once and
# 1,000 sessions one after another against real servers, every file checked, every session
# and descriptor given back; then the app drops 2,000 files at once on vsftpd, whose logins
# are slow enough that most sessions wait for their turn to connect.
#
#   scripts/load.sh            about 10 minutes on 2 cores, after the build
#
# Environment: VELMAR_LOAD_AT_ONCE (500), VELMAR_LOAD_IN_TURN (1000), VELMAR_LOAD_DROP (2000).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export VELMAR_LOAD_AT_ONCE=${VELMAR_LOAD_AT_ONCE:-500} VELMAR_LOAD_IN_TURN=${VELMAR_LOAD_IN_TURN:-1000}
bash "$root/scripts/test.sh" --asan -R 'faults_load_test'
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
TQ_FTP_SERVER=vsftpd bash "$root/tests/app/e2e_drop.sh" "$root/build-asan/app/thornquill-upload" "${VELMAR_LOAD_DROP:-2000}"
