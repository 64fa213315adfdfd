# shellcheck shell=bash
# The shell of a transcript reads this first: play makes it a process group of its own, so that everything ends with it.
unset BASH_ENV
echo "$PPID" >"$PLAY/session"
trap 'kill -KILL 0' EXIT
trap 'echo "$BASH_COMMAND" >"$PLAY/running"' DEBUG

tool() { printf '#!/bin/sh\nexec %s "%s" "$@"\n' "${KELTIPC_EMULATOR-}" "$2" >"bin/$1" && chmod +x "bin/$1"; }

mkdir bin
tool keltipc "$KELTIPC_TOOL"
tool keltipc-portsim "$KELTIPC_PORTSIM"
PATH=$PWD/bin:$PATH

# soon COMMAND...: tries it until it succeeds. The time limit of the whole transcript is the only one.
soon() { until "$@" >/dev/null 2>&1; do sleep 0.02; done; }

# port NAME [OPTION...]: starts a simulated port. "$NAME" is its process, and NAME.said its output.
port() {
  rm -f "$1.said"
  keltipc-portsim --backend "${KELTIPC_BACKEND:-pty}" "$@" >"$1.said" 2>&1 &
  printf -v "$1" %d $!
  until [[ -s $1.said ]] || ! kill -0 $!; do sleep 0.02; done
}

# start NAME COMMAND...: starts a command. "$NAME" is its process, NAME holds its output, and NAME.said its messages.
start() {
  rm -f "$1"
  "${@:2}" >"$1" 2>"$1.said" &
  printf -v "$1" %d $!
}

# signals DEVICE [OPTION...]: the signals that a dump prints, without the time and the device.
signals() { keltipc dump "$@" 2>said | sed '/^#/d; s/.* //'; }

# end PROCESS [SIGNAL]: ends a process and returns its exit status.
end() { kill -"${2-TERM}" "$1" && wait "$1"; }
