# A private headless desktop for the demo and the benchmark, to be sourced:
#   start_live_session DIR    starts Xvfb, a session bus and the accessibility bus, exports what
#                             applications and the tools need to use them
#   live_start PROGRAM ...    starts a program there, ended with the session
#   live_start_window_manager starts openbox there and waits until it has announced itself. Start
#                             the applications first: openbox takes over the windows there are,
#                             but drops a window mapped while it is still starting
#   live_wait_for_tree CTL APP TEXT
#                             waits until `CTL tree APP` shows TEXT: the application is up on the
#                             accessibility bus with its content
#   stop_live_session         ends everything, last started first
# Nothing of the caller's own desktop is used or touched.

live_pids=()

live_wait_for() { # SECONDS COMMAND...: polls until COMMAND succeeds
  local tries=$(( $1 * 10 )); shift
  for _ in $(seq "$tries"); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
  return 1
}

start_live_session() {
  local dir=$1
  mkdir -p "$dir/runtime"; chmod 700 "$dir/runtime"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset 3>"$dir/display" >"$dir/xvfb.log" 2>&1 &
  live_pids+=($!)
  live_wait_for 10 test -s "$dir/display" || { echo "live session: Xvfb did not start" >&2; return 1; }
  export DISPLAY=":$(head -n 1 "$dir/display")"
  export XDG_RUNTIME_DIR="$dir/runtime"
  dbus-daemon --session --nofork --address="unix:dir=$dir/runtime" --print-address=3 3>"$dir/bus" \
    >"$dir/dbus.log" 2>&1 &
  live_pids+=($!)
  live_wait_for 10 test -s "$dir/bus" || { echo "live session: no session bus" >&2; return 1; }
  export DBUS_SESSION_BUS_ADDRESS="$(head -n 1 "$dir/bus")"
  /usr/libexec/at-spi-bus-launcher --launch-immediately >"$dir/atspi.log" 2>&1 &
  live_pids+=($!)
  live_wait_for 10 dbus-send --session --dest=org.a11y.Bus --print-reply /org/a11y/bus org.a11y.Bus.GetAddress \
    || { echo "live session: no accessibility bus" >&2; return 1; }
  # Accessibility on, as a user of the desktop turns it on.
  dbus-send --session --dest=org.a11y.Bus --print-reply /org/a11y/bus org.freedesktop.DBus.Properties.Set \
    string:org.a11y.Status string:IsEnabled variant:boolean:true >/dev/null \
    || { echo "live session: accessibility could not be turned on" >&2; return 1; }
  # The registry starts when it is first asked for; an application that asks first on a busy
  # machine may give up on accessibility for good. So it is asked here.
  local a11y
  a11y=$(dbus-send --session --dest=org.a11y.Bus --print-reply /org/a11y/bus org.a11y.Bus.GetAddress \
         | sed -n 's/.*string "\(.*\)"/\1/p')
  live_wait_for 30 dbus-send --bus="$a11y" --dest=org.a11y.atspi.Registry --print-reply \
    /org/a11y/atspi/accessible/root org.freedesktop.DBus.Peer.Ping \
    || { echo "live session: the accessibility registry does not answer" >&2; return 1; }
  export NO_AT_BRIDGE=0 GTK_A11Y=atspi QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_ACCESSIBILITY=1
  export GDK_BACKEND=x11 GSETTINGS_BACKEND=memory UIET_ACCESSIBILITY=atspi
  unset QT_QPA_PLATFORM WAYLAND_DISPLAY AT_SPI_BUS_ADDRESS
}

live_start() {
  "$@" >/dev/null 2>&1 &
  live_pids+=($!)
}

live_start_window_manager() {
  live_start openbox --sm-disable
  live_wait_for 20 sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"' && return 0
  echo "live session: openbox did not start" >&2
  return 1
}

live_wait_for_tree() {
  local ctl=$1 application=$2 text=$3
  live_wait_for 20 sh -c '"$1" tree "$2" | grep -qF "$3"' sh "$ctl" "$application" "$text" && return 0
  echo "live session: $application did not come up on the accessibility bus" >&2
  return 1
}

stop_live_session() {
  local i
  for (( i=${#live_pids[@]}-1; i>=0; i-- )); do
    kill "${live_pids[i]}" 2>/dev/null || true
    wait "${live_pids[i]}" 2>/dev/null || true
  done
  live_pids=()
}
