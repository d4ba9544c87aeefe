// What the help says beside the lists of commands and options.
#ifndef KRVSTAT_HELPTEXT_H
#define KRVSTAT_HELPTEXT_H

constexpr const char* Description = "Shows the runtime statistics of gateways.";

constexpr const char* CommandFooter = "The options of 'krvstat --help' may stand before or behind the command.";

constexpr const char* Footer = R"(Gateways
  HOST is a name, an IPv4 address or an IPv6 address, or a target that the
  configuration file names. An IPv6 address stands in brackets if a port
  follows it: [::1]:7845. Several targets are asked at the same time. TIME is a
  number with ms, s, m or h behind it; alone it is seconds.

Ids
  "krvstat groups" and "krvstat ids" list what can be asked for. "get" takes ids
  of statistics and of groups, which it shows whole. An id cannot contain ':',
  which separates ids in a request. If one begins with '-', put "--" before it.

Output
  Data goes to standard output; messages, and the trace unless it has a file, go
  to standard error. Values are texts and are shown as the gateway sent them,
  except that in tables, and on terminals, bytes that cannot be printed are
  shown as \xNN. In tables '\' is \\, and on a terminal what does not fit into
  the line is cut and ends in "...".

Output forms
  table, wide (with groups), json, jsonl, csv, tsv, prom (Prometheus), value and
  name (the bytes of that and nothing else).

Rates
  are made from the monotonic times at which samples were received. Where a
  number has fallen there is none but "reset"; where the sample before is
  missing, "gap".

Environment
  KRVSTAT_TARGET (several: with blanks between them), KRVSTAT_TIMEOUT,
  KRVSTAT_OUTPUT, KRVSTAT_CONFIG and KRVSTAT_CONTEXT stand for the options of
  those names. Options go before the environment, and that goes before the
  configuration file, which is $XDG_CONFIG_HOME/krvstat/config.yaml unless
  another is named. NO_COLOR and CLICOLOR_FORCE are heeded.

Trace levels
  0 nothing, 1 exceptions, 2 also events, 3 also calls and their results, 4 and
  5 also internal detail with every byte exchanged.

Exit codes
  0  everything that was asked for has been delivered; also if it was nothing
  1  the gateway answered and refused the whole request; diff: there are
     differences
  2  wrong usage or configuration, or a file that cannot be used
  3  some ids, groups, targets or samples failed; the rest has been delivered
  4  cannot connect: the host was not found, nobody listens there, the network
     is unreachable, or no gateway answered
  5  a deadline passed: that of connecting or that of the whole
  6  connected, but the exchange failed: the gateway closed the connection,
     reported an error or sent a reply that cannot be read
  7  an id or group that was asked for does not exist; what exists has been
     delivered
  8  output could not be written
  9  out of memory, or a fault of krvstat itself
  130  interrupted
  "check" ends with 0 (OK), 1 (WARNING), 2 (CRITICAL) or 3 (UNKNOWN).

Examples
  krvstat get memory
      All values of a group of the gateway on this machine.
  krvstat -t gw1 -t gw2:7846 watch -n 5s --sort rate --limit 10
      What changes most on two gateways, every five seconds.
  krvstat -t [::1]:7845 check queue.length --warn 100 --crit 500
      A check for a monitoring system.)";

#endif
