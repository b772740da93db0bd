# Sourced by the scripts that test against tgt's iSCSI target: one tgtd on
# 127.0.0.1, on a free port from 3300 on (3271-3299 belong to
# scripts/kernel-tape; the control port, which names tgtd's socket in the
# shared /var/run/tgtd/, is the same number), under a time limit, stopped by
# its PID. Needs root.
#   tgt_start LOG_DIR LIMIT_SECONDS   sets TGT_PORT and TGT_PID (tgtd's own);
#                                     LOG_DIR "-": no log (tgt 1.0.85 logs a line
#                                     for every Read it serves)
#   tgt_adm ARGS...                   tgtadm for that tgtd, iSCSI driver
#   tgt_stop                          deletes every target, then the system
TGT_PORT=""
TGT_PID=""
tgt_timeout_pid=""

tgt_adm() { tgtadm -C "$TGT_PORT" --lld iscsi "$@"; }

tgt_port_is_free() {
  ! (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && [ ! -e "/var/run/tgtd/socket.$1" ]
}

# The process whose parent is $1 (tgtd below its `timeout`).
tgt_child_of() {
  local stat pid rest
  for stat in /proc/[0-9]*/stat; do
    read -r pid _ _ rest 2>/dev/null <"$stat" || continue  # a process may end meanwhile
    [ "${rest%% *}" = "$1" ] && { echo "$pid"; return 0; }
  done
  return 1
}

# A port another tgtd takes between the probe and the start makes tgtd exit:
# the next port is tried.
tgt_start() {
  local log_dir=$1 limit=$2 candidate=3300 tries log
  for tries in 1 2 3 4 5 6 7 8; do
    while ! tgt_port_is_free "$candidate"; do
      candidate=$((candidate + 1))
      [ "$candidate" -lt 3400 ] || { echo "FAIL: no free port for tgtd in 3300-3399"; return 1; }
    done
    TGT_PORT=$candidate
    log=/dev/null
    [ "$log_dir" = - ] || log="$log_dir/tgtd-$TGT_PORT.log"
    timeout -k 5 "$limit" tgtd -f -C "$TGT_PORT" --iscsi portal="127.0.0.1:$TGT_PORT" >"$log" 2>&1 &
    tgt_timeout_pid=$!
    for _ in $(seq 50); do
      TGT_PID=$(tgt_child_of "$tgt_timeout_pid" || true)
      [ -n "$TGT_PID" ] && tgtadm -C "$TGT_PORT" --op show --mode system >/dev/null 2>&1 && return 0
      kill -0 "$tgt_timeout_pid" 2>/dev/null || break
      sleep 0.1
    done
    { kill "$tgt_timeout_pid" && wait "$tgt_timeout_pid"; } 2>/dev/null || true
    tgt_timeout_pid=""
    TGT_PID=""
    candidate=$((candidate + 1))
  done
  echo "FAIL: tgtd did not start (last log: $log)"
  return 1
}

# tgtd ignores SIGTERM while it serves targets: the targets go first, then
# the system. A tgtd that was killed leaves its control socket behind.
tgt_stop() {
  [ -n "$tgt_timeout_pid" ] || return 0
  if kill -0 "$TGT_PID" 2>/dev/null; then
    kill -CONT "$TGT_PID" 2>/dev/null || true
    local tid
    for tid in $(tgtadm -C "$TGT_PORT" --op show --mode target 2>/dev/null | sed -n 's/^Target \([0-9]*\):.*/\1/p'); do
      tgt_adm --op delete --mode target --tid "$tid" --force >/dev/null 2>&1 || true
    done
    tgtadm -C "$TGT_PORT" --op delete --mode system --force >/dev/null 2>&1 || kill "$TGT_PID" 2>/dev/null || true
  fi
  { wait "$tgt_timeout_pid"; } 2>/dev/null || true  # quiet: a killed tgtd is no news here
  rm -f "/var/run/tgtd/socket.$TGT_PORT" "/var/run/tgtd/socket.$TGT_PORT.lock"
  tgt_timeout_pid=""
  TGT_PID=""
}
