#!/usr/bin/env bash
# The exported surface of the two shared objects: exactly the four entry
# points of each of the 37 messages and of the identifier, the SONAMEs, and
# no dependency beyond the C library (and the identifier library).
# Usage: [NM=.. READELF=..] abi_check.sh libmivo_obfl_mgr.so libmivo_tesk_eid.so SANITIZED(0|1)
set -euo pipefail
mgr=$1 eid=$2 sanitized=${3:-0}
messages="svc_regn svc_regn_done svc_unregn svc_unregn_done
  write_env_pep_record write_env_pep_record_done write_env_raw_record write_env_raw_record_done
  write_env_volt_thresholds write_env_volt_thresholds_done write_env_current_thresholds
  write_env_current_thresholds_done write_env_temp_thresholds write_env_temp_thresholds_done
  log_env_sensor_info log_env_sensor_info_done log_bulk_env_sensor_info log_bulk_env_sensor_info_done
  write_syslog_thresholds write_syslog_thresholds_done log_syslog log_syslog_done
  log_str_thresholds log_str_thresholds_done log_str log_str_done log_uptime log_uptime_done
  log_diag_record log_diag_record_done log_diag_str_record log_diag_str_record_done
  mgbl_hello mgbl_hello_done mgbl_notify_locations mgbl_request mgbl_request_done"
entry_points() { for m in "$@"; do for s in encode_ext decode_ext duplicate free_ext; do echo "mivo_${m}_$s"; done; done | sort; }
exported() { "${NM:-nm}" -D --defined-only "$1" | awk '{print $NF}' | sort; }
# Values of one dynamic-section tag; a sanitizer build brings its runtimes
# in, and libc may then drop out under --as-needed.
dynamic() {
  "${READELF:-readelf}" -d "$1" | sed -n "s/.*($2).*\[\(.*\)\]/\1/p" |
    if [ "$sanitized" = 1 ]; then grep -v -e '^libc\.so\.6$' -e 'san\.so' || true; else cat; fi | sort
}
expect() { [ "$2" = "$3" ] || { printf '%s differs:\n' "$1"; diff <(echo "$3") <(echo "$2") || true; exit 1; }; }

[ "$(entry_points $messages | wc -l)" = 148 ] || { echo "the message list is not 37 long"; exit 1; }
expect "catalogue exports" "$(exported "$mgr")" "$(entry_points $messages)"
expect "identifier exports" "$(exported "$eid")" "$(entry_points tesk_eid_st)"
expect "catalogue SONAME" "$(dynamic "$mgr" SONAME)" libmivo_obfl_mgr.so.1
expect "identifier SONAME" "$(dynamic "$eid" SONAME)" libmivo_tesk_eid.so.1
libc=$([ "$sanitized" = 1 ] || echo libc.so.6)
expect "catalogue NEEDED" "$(dynamic "$mgr" NEEDED)" "$(printf '%s\n' $libc libmivo_tesk_eid.so.1)"
expect "identifier NEEDED" "$(dynamic "$eid" NEEDED)" "$libc"
echo "exports, SONAMEs and dependencies as expected"
