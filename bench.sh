#!/usr/bin/env bash
# Measures against peers on this machine, in this run, and prints one table of ratios. A benchmark is no test:
# nothing here fails a build. Peers come from apt and npm at this moment only.
set -euo pipefail
cd "$(dirname "$0")"

scripts/install-packages packaging/apt-packages.txt bench/apt-packages.txt
scripts/build release
cmake --preset release -DKELVADROME_BENCH=ON >build/configure-bench.log 2>&1 ||
    { cat build/configure-bench.log >&2; exit 1; }
cmake --build build/release --target bench_wire bench_delivery bench_empty bench_bare_window bench_screen_watch bench_heartbeat bench_bar_key bench_bare_bar

peers=$PWD/build/bench-peers data=$PWD/build/bench-data
bin=$PWD/build/release/bin node=$bin/resources/node/bin/node
mkdir -p "$peers" "$data"
[ -d "$peers/node_modules/eventsource-parser" ] ||
    npm install --silent --no-audit --no-fund --no-save --prefix "$peers" eventsource-parser@3
"$node" bench/drivers/make-cards.mjs "$data" 1000 10000 100000

results=$data/results
rm -rf "$results"
mkdir -p "$results"
export KELVADROME_BENCH_DATA=$data
# Rounds, so that a peer is measured shortly after what is compared with it, and the table can say how far runs lie
# apart.
for round in 1 2 3 4 5; do
    for part in wire delivery; do
        "$bin/bench_$part" --benchmark_format=json --benchmark_min_time=0.1 >"$results/$part-$round.json" 2>/dev/null
    done
    "$node" bench/drivers/json-parse.mjs "$data" 1000 10000 100000 >>"$results/json-parse.lines"
    "$node" bench/drivers/event-stream.mjs "$peers" >>"$results/event-stream.lines"
done
"$node" bench/drivers/tmux-answers.mjs "$bin" >"$results/tmux-answers.lines"
"$node" bench/drivers/panel.mjs "$bin" >"$results/panel.lines"
"$node" bench/drivers/desktop.mjs "$bin" >"$results/desktop.lines"
"$node" bench/drivers/search.mjs 100000 >"$results/search.lines"
"$node" bench/drivers/relay.mjs 10,100,1000 >"$results/relay.lines"
"$node" bench/drivers/report.mjs "$results"
