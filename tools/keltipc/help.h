#pragma once

// What --help says below the options.
namespace keltipc {

constexpr const char* tool_help =
    R"('keltipc COMMAND --help' and, for unit and target, 'keltipc unit start --help'
and so on have the options. The manual is keltipc(1).)";

constexpr const char* send_help =
    R"(A receiver drops everything before the first start frame: begin with
--frame-start 0=1 unless something else sends start frames on the port.

SIGNAL is ID#HEX, both hexadecimal, without 0x:
  5a#0aff               identifier 5a, bytes 0a ff; up to 65535 bytes
  "1000005a#0a ff.01"   the top four bits are the status that the receiver sees;
                        dots and blanks may stand between bytes
  5a#@FILE              the bytes of FILE
  -                     lines of standard input, sent as they come: a SIGNAL, or
                        'start ID=STAMP' for a start frame; a line that begins
                        with # is ignored

--replay takes what 'keltipc dump' printed, log lines or JSON, from any device.
It sends the start frames too, with identifier 0 or that of --frame-start ID. A
FILE is checked whole before anything is sent; standard input and a FIFO are
sent line by line:
  keltipc dump A | keltipc send B --replay - --no-timing

After SIGINT, SIGTERM or SIGHUP it finishes the signal that it is sending, for
up to 5 s, and ends; a second one ends it at once.

If the device goes, send waits up to 60 s for it to come back, whatever --wait
says.

Status 0 means handed to the device; nothing tells whether anybody received it.
1: the device refused a frame or has gone, or a bad line came on standard input;
2: usage, nothing was sent; 124: the device could not be opened.)";

constexpr const char* dump_help =
    R"(A port has one reader. A second one takes messages away from the first, and
both get signals that are wrong. 'fuser -v DEVICE' lists who has it open.

Nothing is printed before the first start frame. At the end, standard error says
what came, and what was lost or wrong. No signals, or wrong ones? Look at the
frames with --frames, and check --frame and --frame-start.

Each signal is one line, written at once. Numbers are hexadecimal. On a
terminal, or with -t: the time and ID: STATUS, STAMP { BYTES }, where STAMP is
that of the last start frame; a terminal shows 64 bytes at most. Elsewhere the
log line that 'keltipc send --replay' takes back:
  (SECONDS.MICROS) DEVICE ID:STATUS:STAMP#HEX

Filters, identifier and mask in hexadecimal; the top four of 32 bits are the
status:
  /dev/qp0,5:f,10:ff    only signals that match 5 under the mask f, or 10
                        under ff
  /dev/qp0,100~7f0      no signal that matches 100 under the mask 7f0
Everything after the first comma is a filter. If the path contains a comma, use
a symbolic link.

Where something is lost or wrong, a line "# (SECONDS.MICROS) DEVICE lost or
wrong: ..." says so.

-r prints a log, a file or a FIFO: off a terminal, and without --json, --log or
-t, as it stands there. Rates, ages and -t d|z count by the times of the log. A
bad line is named and passed over; the status is then 1.

SIGINT, SIGTERM and SIGHUP end it at once, a second one in its report too.
Status: 0 done; 1 failed, or the port has gone, or see --strict; 2 usage; 124 a
port could not be opened, or no line was printed within --idle; 128 + n after
signal n.)";

constexpr const char* watch_help =
    R"(One row for each identifier, drawn anew once a second: count, signals a second,
shortest and longest length, last status, time since the last signal, and the
first bytes of its payload. Bytes that changed within the last second are in
reverse video. The first line has the frames and the rates, the second what was
lost or wrong, the third the last fault, if any. Ctrl+C ends it and leaves the
last table.

Filters and the exit status are those of 'keltipc dump'. Standard output must be
a terminal; elsewhere use 'keltipc dump --stats'.)";

constexpr const char* check_help =
    R"('differs' says what it costs, and which page says more. Messages that are read
are lost to the application; a receiver takes what is sent for real signals.

Status: 0 all that is needed holds; 1 a needed row differs or was not tried;
2 usage; 124 the device could not be opened, or nothing came within --idle.)";

constexpr const char* unit_help =
    R"(start, stop, restart and reload take root or a polkit rule; see keltipc(1).

Status: 0 done; 1 failed; 2 usage; 3 not active (state); 4 no such unit;
124 timeout of --wait. With several units the worst: 1, 124, 4, 3, 0.)";

constexpr const char* target_help =
    R"(Starting, stopping and isolating take root or a polkit rule; see keltipc(1).

Status: 0 done, or yes; 1 failed; 2 usage; 3 not active (active), not stopped
(stopped); 4 no such target; 124 timeout of --wait.)";

}  // namespace keltipc
