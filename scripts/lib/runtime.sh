# Shared by scripts/run and scripts/demo: builds what qvfwd needs and lays out a state
# directory in which the daemon, the plug-in and the simulated ipfw keep everything.
# Source it; it defines functions only.

# qv_build BUILD_DIR: a Release build of the daemon, the tool, the plug-in and the
# simulator (nothing else), installing the Debian packages first.
qv_build() {
  local build_dir=$1
  scripts/setup
  cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DQV_TESTS=OFF -DQV_BENCH=OFF >/dev/null
  cmake --build "$build_dir" -j"$(nproc)" --target qvfwd qvfwctl QvFw ipfw-sim >/dev/null
}

# qv_state STATE_DIR BUILD_DIR: creates the state directory and exports the environment
# that points every component into it. An existing configuration file is kept, so the
# rules of an earlier run come back.
qv_state() {
  local state=$1 build_dir=$2
  mkdir -p "$state"/conf "$state"/log "$state"/run "$state"/ipfw
  state=$(cd "$state" && pwd)
  local conf="$state/conf/QvFw.conf.plist"
  if [ ! -s "$conf" ]; then
    sed -e "s|@QV_FW_LOG_PATH@|$state/log/ipfw.log|" -e "s|@QV_SYSLOG_CONF@|$state/syslog.conf|" \
      host/qvfwd/dist/QvFw.conf.plist.in >"$conf"
  fi
  touch "$state/syslog.conf"
  export QV_CONF_DIR="$state/conf"
  export QV_LOG_DIR="$state/log"
  export QV_CONTROL_SOCKET="$state/run/qvfw.sock"
  export QV_IPC_SOCKET="$state/run/host.sock"
  export IPFW_SIM_STATE="$state/ipfw/rules"
  export IPFW_SIM_SYSLOG_CONF="$state/syslog.conf"
  local bin
  bin=$(cd "$build_dir" && pwd)
  # The simulator stands in for ipfw, sysctl and killall on a machine without ipfw.
  if ! command -v ipfw >/dev/null 2>&1 || [ -n "${QV_USE_SIM:-}" ]; then
    export PATH="$bin/sim:$PATH"
  fi
  export PATH="$bin/bin:$PATH"
  {
    echo "# qvfwctl and the simulated ipfw against the qvfwd of $state"
    for name in QV_CONF_DIR QV_LOG_DIR QV_CONTROL_SOCKET QV_IPC_SOCKET IPFW_SIM_STATE \
                IPFW_SIM_SYSLOG_CONF PATH; do
      printf 'export %s=%q\n' "$name" "${!name}"
    done
  } >"$state/env.sh"
}

# qv_wait_for_daemon SECONDS: polls until qvfwd answers, false at the deadline.
qv_wait_for_daemon() {
  local deadline=$((SECONDS + $1))
  until qvfwctl status >/dev/null 2>&1; do
    if [ "$SECONDS" -ge "$deadline" ]; then
      return 1
    fi
    sleep 0.1
  done
}
