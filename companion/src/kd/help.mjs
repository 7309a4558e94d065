/** The text of `--help`; `kd` is the command that works on this machine, for the examples. */
export const helpFor = (kd) => `kd: ask the user a question from a coding agent, and look at what is asked.

usage: kd COMMAND [OPTIONS]

  hooks      have an agent's questions become cards by themselves:
             kd hooks install|uninstall|status claude|codex
  run        start an agent so that it can be answered from anywhere: kd run claude ...
             It runs in tmux, which is not to be seen; closing the terminal keeps it
  attach     bring an agent of kd run back to this terminal: kd attach [NAME]
  doctor     look what works on this machine, and say what to do
  ask        open a card in the Kelvadrome inbox for the agent that called kd
  wait       wait for the answer to a question that was asked before, and print it:
             kd wait CARD_ID [--seconds N]. The question stays when the time is over, and
             an answer that was given before is printed at once
  withdraw   take a question back: kd withdraw CARD_ID [--answered TEXT], with what was
             chosen in the terminal. Returns once no answer is being typed any more
  touch      tell what the agent is doing, without asking
  inbox      list the questions that wait for the user
  sessions   list the agents
  sample     have a sample agent ask a question, to see how it goes
  answer     answer a card: kd answer CARD_ID ANSWER (only with a daemon that runs for tests)
  hook       what the agent runs then: kd hook AGENT, with its message on standard input
  relay      kd relay serve: run the relay through which a paired phone reaches this computer
  voice      what turns speech into text on this machine: kd voice status;
             kd voice install-engine, kd voice model FOLDER for the local route
  page-key   tell which program holds the page; --reset forgets its key, for when the key was lost
  help       this text; also kd COMMAND --help

kd ask
  -t, --title TEXT       the question, 1 line (required, but for --trust)
  -b, --body TEXT        more lines; "-" reads them from standard input
  -o, --option TEXT      an answer to choose from; repeat for more
  -d, --default TEXT     the answer that you suggest
      --menu             the terminal shows the options as a numbered menu: the answer is
                         typed as the option's number, 1 to 9, and nothing else is taken
      --kind KIND        question (the standard), stop, batch, conflict, handoff_review, precedent
      --risk RISK        low (the standard), medium, high; high is answered on the main page only
      --stop-type TYPE   what a stop stops before, such as payment
      --topic TOPIC      what the question is about
      --scope SCOPE      scenario, tolvena, family or companies: what the topic belongs to
      --restricted       the topic stays on this computer: no phone gets to see it
      --row ID=TEXT[=DEFAULT]   1 question of a batch; repeat for more
      --trust FOLDER     claude's folder question is on the screen (folder as the screen names it)
      --not-blocking     the agent goes on working meanwhile
      --ref KEY=VALUE    a detail for the card; repeat for more
  -w, --wait[=SECONDS]   wait here and print the answer, instead of having it typed into the
                         terminal. The question is withdrawn when the time is over or kd is ended,
                         unless it has a name
      --ask-id NAME      your own name for the question: asking the same again under it finds the
                         same card, and with --wait prints the answer that it has got since. It is
                         free again once the question ended without an answer
      --label TEXT       a name for this agent session
      --json             print JSON

  Without --wait it prints the card's id and returns; the answer is typed into the agent's terminal.
  Where nothing can be typed the card says so. Without a terminal, and where nobody waits any more,
  the answer is kept: fetch it with kd wait, or by asking again with the same --ask-id and --wait.

Who asks. kd looks upward from its own process for a known agent (claude, codex, grok, gemini, qwen,
copilot, cursor-agent, droid, opencode, amp, aider, pi), also for one that node, bun, deno or python
runs as a script of that name, and takes its process, terminal and tmux pane.
Where it finds none, the question counts as asked from a shell.
      --agent NAME       look for a process of this name instead
      --pid PID          take this process
      --session ID       the agent's own session id
      --host HOST --host-ref REF   its terminal: tmux with a pane such as %3, iterm2, herdr
      --codex-thread ID  the Codex thread to queue for when there is no terminal to type into
      --no-terminal      there is no terminal; needs --agent

kd touch takes the same, and
      --status WORD      busy, working, waiting, idle, failed, ended
      --doing TEXT       a few words on what it does

kd hooks
      --dry-run              print the settings file as it would be, and write nothing
      --project              the settings of the project in this folder, not the user's own
      --what-next            ask "What next?" after each stop, too
      --wait SECONDS         how long the agent waits for your answer before it asks in its terminal
                             (claude: shows both at once and waits as long as you do; codex: 15)

kd relay serve
      --port N           for phones, 7447 unless told; the next two are for this computer itself
      --host NAME --cert FILE --key FILE   the name under which phones reach it, with the certificate
                         for that name. Without them it serves this computer alone, to try it out
      --cluster FILE     in place of a relay on this computer, write the configuration of the
                         NATS servers that FILE describes (docs/relay.md)
      --renew            make new places for phones; phones that are paired have to be paired again

kd voice
  status                 which route is selected, how much of today is used, whether the local one works
  install-engine         put the local speech engine into the data home, with npm (33 MB)
  model                  use the speech model in the folder named behind it, and try whether it loads

Everywhere
      --home DIR         the data home; else KELVADROME_HOME; else
                         ~/Library/Application Support/Kelvadrome
      --json             print JSON

Exit codes: 0 done; 1 kelvadromed refused; 3 no daemon; 4 no agent found; 5 no answer in time;
6 the question ended without an answer; 64 wrong usage.

Examples
  ${kd} ask -t "Deploy to staging?" -o Yes -o No -d Yes --menu --topic billing
  ${kd} ask -t "Which name?" --wait=600
  ${kd} ask --kind batch -t "3 choices" --row "lang=Language?=Rust" --row "tests=Write tests?=yes"
  ${kd} ask --kind stop --risk high --stop-type payment -t "Pay the invoice?" -o Approve -o Reject --menu
`;
