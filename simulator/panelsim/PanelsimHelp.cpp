#include "simulator/panelsim/PanelsimHelp.h"

#include "simulator/bus/PanelOrder.h"

namespace Vantor {

namespace {

constexpr char firmware[] =
    R"(A panel takes firmware upgrades: it writes a chunk in 110 ms, or --chunk-time, and answers. Its flash,
2 MiB for the main MCU and 1 MiB for the servo MCU, outlives unplugging. With --flash-dir it outlives
the run, too: panelP-main.bin and panelP-servo.bin in DIR are loaded at the start, and written when the
panel is unplugged and at the end, each if an upgrade has written to it. At the end, standard error
says what became of upgrades:
  panelsim: panel 0: main MCU: 12000 bytes, verified
  panelsim: panel 0: servo MCU: incomplete, 8192 of 12000 bytes
or "12000 bytes, does not match its CRC".

)";

constexpr char pictures[] =
    R"(LCDs are white when a panel is plugged in, 144x168 unless --lcd says otherwise, and drawn on by
LCD slices; a panel shows at most 64 of them, of any numbers. --png and --show tell what is on them at
the end: of a panel that is unplugged by then, what it showed last; of one that was plugged back, only
what was drawn since. --png writes panelP-lcdL.png for each LCD drawn on (8-bit grey when all its pixels
are grey, else RGB) and leaves other files in DIR alone. --show prints a column for each pixel and
two rows of pixels in a line.

)";

constexpr char capture[] =
    R"(--record writes each transfer when it is submitted and when it is complete, with its data and status,
and how each panel is found, as pcap of link type 220 (USB_LINUX_MMAPPED). Each frame is written at
once; panelsim may be killed.

)";

constexpr char script[] =
    R"(--script takes the same from a file, a command a line with its TIME in front; +TIME counts from the command
before, '#' begins a remark:
  2s     unplug 1   # half-way
  +0.5s  plug 1
A file that --log has written is such a script: its lines TIME order: COMMAND count, those of what has
happened to panels don't. So a run can be had again, with the other options as they were.

)";

constexpr char control[] =
    R"('panelsim tell' gives commands to a simulation that is running, through a socket that its user alone
can write to: --control PATH, or one that it finds by itself.

)";

constexpr char web[] =
    R"(--web serves a page with the panels' LCDs, records and counters as they are now, and buttons for all
commands. Standard error says where:
  panelsim: the panels are at http://127.0.0.1:40217/#6f1d0c52...
Who has the whole of that can give commands; who finds the port can look, and on this machine alone unless
ADDRESS says otherwise, as 0.0.0.0 does. The = before PORT is needed.

)";

constexpr char tellFooter[] =
    R"(COMMAND is what --at of 'run' and 'attach' takes, their --help has it all: 'unplug 1', 'fault in stall'.
Of 'attach', and of nothing else, it can also be 'quit'. Several are carried out one after the other, each to its end, and so
are the lines of standard input, where '#' begins a remark.

The simulation is that of --to; or that of $PANELSIM_CONTROL, in which the PROGRAM of 'panelsim run' finds
its own; or the only one of this user that runs. Those it finds, and lists, have their sockets in
$XDG_RUNTIME_DIR/panelsim, /run/user/UID/panelsim or /tmp/panelsim-UID, the first of these that can be;
one with --control is found by that name alone. When it has found the only one, which need not be the one
that was meant, it says on standard error which that is. --list prints nothing, with exit code 0, when none
runs.

What could not be carried out is told on standard error, and the next one tried. A COMMAND that can't be
read is wrong usage: nothing is carried out. A line of standard input that can't be read counts as one that
could not be carried out. Exit code:
  0    all was carried out
  1    a command could not be carried out
  125  wrong usage, no simulation to tell, or no answer from it in 30 s

Example: a cable that comes loose
  panelsim tell 'unplug 1'; sleep 2; panelsim tell 'plug 1')";

constexpr char replay[] =
    R"(With --replay, the panels of a capture of --record or of usbmon are plugged in, and do and say what
they did there. Each answer is given when PROGRAM has sent what it followed in the capture, LCD slices
aside, as long after that as there; with --fast, at once. What does not come is waited for 10 s. What
was not played by the end is told.

--expect compares what PROGRAM sends with what was sent there, records of each type in their order,
slices row by row, and tells the first difference of each type:
  panelsim: difference: panel 0: record 2 (type 5, 2 bytes, at 0.250 s, frame 3) is another
    expected 03 04
    got      03 ff
    they differ from byte 1 on
    it came at 0.301 s
Frames and times of the capture are those that Wireshark shows, from its first frame on; times of now
are as in --log.

)";

constexpr char runBeginning[] =
    R"(Panels are numbered from 0; panel P sits at port P+1 of bus 1 and can be left out when it is 0.
TIME is 250ms, 2s or 1.5s; a plain number is seconds. What happens at 0 has happened before
PROGRAM starts. COMMAND, in quotes, is one of:
)";

constexpr char runEnd[] =
    R"(The lines of --log begin with the seconds since PROGRAM's start; what has happened before has 0.
The end is when PROGRAM has ended; a command whose time had not come by then is told on standard error.

Exit code: that of PROGRAM, or 128+N when signal N ended it;
  120  a panel saw a violation of the wire (each is printed)
  121  PROGRAM has sent something else than --expect expects
  125  wrong usage, a capture that is of no use, or panelsim itself failed
  126  PROGRAM cannot be executed
  127  PROGRAM was not found
Of several, 125 goes before 120, 120 before 121, and 121 before PROGRAM's.

PROGRAM finds the name of the socket for 'panelsim tell' in $PANELSIM_CONTROL, and the address of the
page in $PANELSIM_WEB.

SIGINT and SIGTERM go on to PROGRAM, which is killed if it is still there 3 s later. Ctrl-C in a terminal
reaches PROGRAM by itself: how it takes that is up to it.

Example: a panel that is pulled after 2 s and comes back
  panelsim run --at 2s 'unplug 0' --at 3.5s 'plug 0' -- panelctl watch --duration 6
Example: a capture from the field as a test
  panelsim run --replay field.pcap --expect field.pcap -- product)";

constexpr char attachBeginning[] =
    R"(The kernel needs its module vhci-hcd ('modprobe vhci-hcd'), and attaching needs root; who may open
the panels says the udev rule that is installed with the library. Standard output says what the kernel
gives:
  panel 0: attached at vhci port 0
  panel 0: found by the kernel, which calls it 1-1
A panel that is plugged back gets the port that it had, if that is still free.

Panels are numbered from 0, and P can be left out when it is 0. TIME, counted from the attaching, is
250ms, 2s or 1.5s; a plain number is seconds. COMMAND, in quotes, is one of the following; they are
also taken from standard input, one a line, where '#' begins a remark and 'quit' is the end:
)";

constexpr char attachEnd[] =
    R"(The lines of --log begin with the seconds since the panels were attached.

The end is 'quit', told or read, the end of a terminal's input, SIGINT, SIGTERM or SIGHUP; the panels are unplugged then.

Exit code:
  0    all went well
  120  a panel saw a violation of the wire (each is printed)
  125  wrong usage, the kernel takes no panel, or panelsim itself failed; it goes before 120

Example: a panel that is pulled after 20 s and comes back, for any program on this machine
  sudo panelsim attach --at 20s unplug --at 25s plug)";

} // namespace

std::string PanelsimHelp::getRunFooter()
{
    return std::string(runBeginning) + explainPanelOrders() + "\n" + script + control + web + firmware + pictures +
           capture + replay + runEnd;
}

std::string PanelsimHelp::getTellFooter()
{
    return tellFooter;
}

std::string PanelsimHelp::getAttachFooter()
{
    return std::string(attachBeginning) + explainPanelOrders() + "\n" + script + control + web + firmware + pictures +
           capture + attachEnd;
}

} // namespace Vantor
