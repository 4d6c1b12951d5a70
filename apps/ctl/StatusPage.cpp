#include "apps/ctl/StatusPage.h"

namespace Ctl {

const char* const kStatusPage = R"html(<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Tolmar</title>
<style>
:root {
  color-scheme: light dark;
  --page: #f6f7f8; --card: #ffffff; --line: #dfe3e8; --text: #1d2530; --faint: #66707d;
  --blue: #2b6cb0; --pale: #a9c4e4; --good: #2f855a; --bad: #c05621;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #14181d; --card: #1c2229; --line: #313a44; --text: #dde3ea; --faint: #94a0ad;
    --blue: #63a4e8; --pale: #37587c; --good: #5fb98a; --bad: #ed8f58;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 1.25rem; max-width: 76rem; background: var(--page); color: var(--text);
  font: 15px/1.45 system-ui, sans-serif; font-variant-numeric: tabular-nums;
}
header { display: flex; flex-wrap: wrap; gap: .4rem 2rem; align-items: baseline; margin-bottom: 1rem; }
h1 { font-size: 1.2rem; font-weight: 600; margin: 0; }
h2 { font-size: 1rem; font-weight: 600; margin: 0; }
.state::before {
  content: ""; display: inline-block; width: .6em; height: .6em; border-radius: 50%; margin-right: .5em;
  background: var(--good);
}
.state.down { color: var(--bad); }
.state.down::before { background: var(--bad); }
#server { color: var(--faint); margin: 0 0 1rem; }
#tables { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 28rem), 1fr)); gap: 1rem; }
.card { background: var(--card); border: 1px solid var(--line); border-radius: 6px; padding: 1rem; min-width: 0; }
.row { display: flex; flex-wrap: wrap; justify-content: space-between; gap: .1rem 1rem; align-items: baseline; }
.faint { color: var(--faint); }
.bar { position: relative; height: .6rem; margin: .5rem 0 .8rem; background: var(--line); border-radius: 3px; }
.bar i { position: absolute; inset: 0 auto 0 0; background: var(--blue); border-radius: 3px; }
.bar b { position: absolute; top: -3px; bottom: -3px; width: 2px; background: var(--faint); }
.plots { display: grid; grid-template-columns: 1fr 1fr; gap: 1rem; margin-top: .6rem; }
@media (max-width: 30rem) { .plots { grid-template-columns: 1fr; } body { padding: .8rem; } }
figure { margin: 0; min-width: 0; }
figcaption, .times { font-size: .85rem; }
.times span { border-bottom: 2px solid var(--blue); }
.times .second { border-color: var(--pale); }
svg { display: block; width: 100%; height: 4.5rem; border-bottom: 1px solid var(--line); }
polyline { fill: none; stroke: var(--blue); stroke-width: 1.5; vector-effect: non-scaling-stroke; }
polyline.second { stroke: var(--pale); }
.bad { color: var(--bad); }
#failures { margin-top: 1rem; overflow-x: auto; }
table { border-collapse: collapse; width: 100%; color: var(--text); font-size: .9rem; margin-top: .4rem; }
th, td { text-align: left; padding: .2rem 1.2rem .2rem 0; white-space: nowrap; }
th { color: var(--faint); font-weight: 400; }
</style>
<header><h1>Tolmar</h1><span class="state down" id="agent">waiting for data</span>
<span class="state down" id="hardware"></span></header>
<p id="server"></p>
<main id="tables"></main>
<section class="card" id="failures"><h2>Last failures</h2><div id="failureRows" class="faint">none</div></section>
<script>
"use strict";
const kPoints = 120, kPeriod = 1000;
const past = new Map();
let before = null;

const element = (name, attributes = {}, ...children) => {
  const made = document.createElementNS(
      ["svg", "polyline"].includes(name) ? "http://www.w3.org/2000/svg" : "http://www.w3.org/1999/xhtml", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
};
const short = (value) => value >= 1e6 ? (value / 1e6).toFixed(2) + "M"
    : value >= 1e4 ? (value / 1e3).toFixed(1) + "k" : value.toFixed(value < 10 && value % 1 ? 1 : 0);
const duration = (ns) => ns === null ? "\u2013" : ns < 1e6 ? +(ns / 1e3).toPrecision(3) + " \u00b5s"
    : ns < 1e9 ? +(ns / 1e6).toPrecision(3) + " ms" : +(ns / 1e9).toPrecision(3) + " s";

// The counts added since the last poll; all of them after a restart of the agent.
const newTimes = (now, then) => {
  const known = new Map(then);
  return now.map(([end, count]) => [end, count - (known.get(end) ?? 0)]);
};
const quantile = (times, share) => {
  const count = times.reduce((sum, [, each]) => sum + each, 0);
  let found = 0;
  for (const [end, each] of times) if ((found += each) > 0 && found >= Math.ceil(share * count)) return end;
  return null;
};

const most = (values) => Math.max(0, ...values.filter((value) => value !== null));
const plot = (caption, hint, series) => {
  const top = most(series.flat()) || 1;
  const svg = element("svg", {viewBox: `0 0 ${kPoints - 1} 100`, preserveAspectRatio: "none", role: "img"});
  series.forEach((values, number) => {
    const first = kPoints - values.length;
    const points = values.map((value, at) => value === null ? "" : `${first + at},${98 - 94 * value / top}`);
    svg.prepend(element("polyline", {points: points.join(" ").trim(), class: number ? "second" : ""}));
  });
  return element("figure", {title: hint}, element("figcaption", {class: "faint"}, caption), svg);
};

const card = (table, then, seconds) => {
  const kept = past.get(table.name) ?? {rates: [], p50: [], p99: []};
  past.set(table.name, kept);
  const rate = (name) => then && seconds > 0 ? Math.max(0, table[name] - then[name]) / seconds : 0;
  const times = then ? newTimes(table.answerTimes, then.answerTimes) : [];
  const values = {rates: rate("writes"), p50: quantile(times, .5), p99: quantile(times, .99)};
  for (const [name, value] of Object.entries(values)) {
    kept[name].push(value);
    if (kept[name].length > kPoints) kept[name].shift();
  }
  const share = (rows) => (table.capacity ? 100 * Math.min(1, rows / table.capacity) : 0) + "%";
  const full = element("i"), mark = element("b", {title: `most since the start: ${table.highWater}`});
  full.style.width = share(table.used);
  mark.style.left = share(table.highWater);
  mark.hidden = table.highWater === 0;
  const problems = Object.entries({failed: "failed", timeouts: "late", capacityRefusals: "found it full",
                                   undosRefused: "undos refused", damageReports: "damaged"})
      .filter(([name]) => table[name]).map(([name, text]) => `${table[name]} ${text}`).join(", ");
  const all = [.5, .99, .999, 1].map((each) => duration(quantile(table.answerTimes, each)));
  return element("section", {class: "card", id: table.name},
      element("div", {class: "row"}, element("h2", {}, table.name),
              element("span", {class: "used"}, `${table.used} of ${table.capacity}`)),
      element("div", {class: "bar"}, full, mark),
      element("div", {class: "row"}, element("span", {}, `${short(values.rates)} writes/s`),
              element("span", {class: problems ? "bad" : "faint"}, problems || "no failures")),
      // The names of the first two are the legend of the second plot.
      element("div", {class: "faint times"}, "answers since the start: ", element("span", {}, "p50"),
              ` ${all[0]}, `, element("span", {class: "second"}, "p99"),
              ` ${all[1]}, p99.9 ${all[2]}, max ${all[3]}`),
      element("div", {class: "plots"},
              plot(`writes/s, up to ${short(most(kept.rates))}`, `now ${short(values.rates)}`, [kept.rates]),
              plot(`answer times, up to ${duration(most([...kept.p50, ...kept.p99]) || null)}`,
                   `now p50 ${duration(values.p50)}, p99 ${duration(values.p99)}`, [kept.p50, kept.p99])));
};

const showFailures = (failures) => {
  const rows = failures.slice(0, 12).map((each) => element("tr", {},
      ...[each.time.slice(0, 23) + "Z", each.table, each.status, each.hardwareCode || "", each.handle]
          .map((text) => element("td", {}, String(text)))));
  const heads = ["time", "table", "status", "hardware code", "handle"].map((text) => element("th", {}, text));
  document.getElementById("failureRows").replaceChildren(
      rows.length ? element("table", {}, element("tr", {}, ...heads), ...rows) : "none");
};

const showState = (id, program) => {
  const place = document.getElementById(id);
  place.textContent = program.state;
  place.title = program.options ? `started ${program.start} with ${program.options}` : "";
  place.className = program.up ? "state" : "state down";
};

const show = (data) => {
  showState("agent", data.programs[0]);
  showState("hardware", data.programs[1]);
  const restarted = before && data.programs[0].start !== before.programs[0].start;
  const then = restarted || !before?.tables ? null : before;
  const seconds = then ? (data.time - then.time) / 1e9 : 0;
  before = data;
  if (!data.tables) return;
  const server = data.server;
  document.getElementById("server").textContent = `${short(server.requests)} requests, ${server.rejections} ` +
      `rejected, ${server.requestsInFlight} in flight; ${server.batchesInFlight} batches in flight; ` +
      `${server.streams} streams; ${server.shortenedTexts} error texts shortened`;
  document.getElementById("tables").replaceChildren(
      ...data.tables.map((table, number) => card(table, then?.tables[number], seconds)));
  showFailures(data.failures);
};

const poll = async () => {
  try {
    const answer = await fetch("data.json");
    if (!answer.ok) throw new Error(await answer.text());
    show(await answer.json());
  } catch (error) {
    for (const id of ["agent", "hardware"]) document.getElementById(id).className = "state down";
    document.getElementById("agent").textContent = "no data: " + error.message;
    document.getElementById("hardware").textContent = "";
  }
  setTimeout(poll, kPeriod);
};
poll();
</script>
</html>
)html";

}  // namespace Ctl
