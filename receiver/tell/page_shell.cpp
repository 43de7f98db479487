#include "receiver/tell/page_shell.h"

const char kPageHead[] = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; base-uri 'none'; form-action 'none'">
<title>Tarnwick: what arrived</title>
<style>
:root {
  --page: #fff; --ink: #1c2430; --soft: #5a6675; --line: #d5dbe3; --card: #f4f6f9;
  --bar: #2f6fb2; --good: #1d6b37; --bad: #b3261e; --wait: #7d5700;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #14181e; --ink: #e4e9f0; --soft: #9aa7b7; --line: #333c48; --card: #1d232b;
    --bar: #6aa5e3; --good: #7bd197; --bad: #ff9a90; --wait: #eac05f;
  }
}
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1rem; max-width: 76rem; background: var(--page); color: var(--ink);
  font: 16px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.5rem; margin: 0; }
h2 { font-size: 1.15rem; margin: 2rem 0 .5rem; }
h3 { font-size: 1rem; margin: 0 0 .3rem; }
p { margin: .3rem 0; }
.soft { color: var(--soft); }
a { color: var(--bar); }
nav a { margin-right: .8rem; }
.tiles, .plots { display: grid; gap: .75rem; margin: 1rem 0; padding: 0; list-style: none; }
.tiles { grid-template-columns: repeat(auto-fill, minmax(9.5rem, 1fr)); }
.plots { grid-template-columns: repeat(auto-fit, minmax(min(22rem, 100%), 1fr)); }
.tiles li, .plots > div { background: var(--card); border: 1px solid var(--line);
  border-radius: .5rem; padding: .6rem .8rem; min-width: 0; }
.tiles b { display: block; font-size: 1.4rem; }
svg { display: block; width: 100%; height: auto; }
svg rect { fill: var(--bar); }
svg path { stroke: var(--line); }
svg text { fill: var(--soft); font: 11px system-ui, sans-serif; }
table { width: 100%; border-collapse: collapse; font-size: .9rem; }
th, td { text-align: left; vertical-align: top; padding: .3rem .6rem .3rem 0;
  border-bottom: 1px solid var(--line); }
th { color: var(--soft); font-weight: 600; white-space: nowrap; }
td.p { overflow-wrap: anywhere; }
td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; }
td { white-space: nowrap; }
td.p { white-space: normal; width: 60%; }
td.t { font-variant-numeric: tabular-nums; }
.delivered { color: var(--good); }
.incomplete, .refused, .lost { color: var(--bad); font-weight: 600; }
.receiving { color: var(--wait); }
.error { color: var(--bad); border: 1px solid; border-radius: .5rem; padding: .6rem .8rem; }
#filter { display: flex; flex-wrap: wrap; gap: .6rem; align-items: end; margin: .5rem 0; }
#filter[hidden] { display: none; }
#filter label { display: grid; font-size: .85rem; color: var(--soft); }
input, select { font: inherit; color: inherit; background: var(--page); min-width: 0;
  border: 1px solid var(--soft); border-radius: .35rem; padding: .3rem .5rem; }
summary { cursor: pointer; }
@media (max-width: 44rem) {
  table.rows, .rows tbody, .rows tr, .rows td { display: block; }
  .rows thead { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); }
  .rows tr { border-bottom: 1px solid var(--line); padding: .5rem 0; }
  .rows td, .rows td.n { border: 0; padding: 0; text-align: left; display: inline-block;
    margin-right: .8rem; }
  .rows td.p { display: block; width: auto; margin: 0; }
  .rows td[data-l]::before { content: attr(data-l) " "; color: var(--soft); }
  .rows td:empty { display: none; }
  .rows tr[hidden] { display: none; }
}
</style>
</head>
<body>
)";

const char kPageEnd[] = R"(<script>
"use strict";
(function () {
  const form = document.getElementById("filter");
  const table = document.getElementById("all");
  if (!form || !table) return;
  const rows = Array.from(table.tBodies[0].rows, function (row) {
    return { row: row, outcome: row.cells[1].textContent, text: row.textContent.toLowerCase() };
  });
  const outcome = form.elements.outcome, words = form.elements.words;
  function apply() {
    const wanted = words.value.toLowerCase().split(/\s+/).filter(Boolean);
    let shown = 0;
    for (const entry of rows) {
      const fits = (!outcome.value || entry.outcome === outcome.value) &&
        wanted.every(function (word) { return entry.text.includes(word); });
      entry.row.hidden = !fits;
      shown += fits ? 1 : 0;
    }
    form.elements.shown.value = shown + " of " + rows.length + " shown";
  }
  let waiting = 0;
  form.addEventListener("input", function () {
    clearTimeout(waiting);
    waiting = setTimeout(apply, 150);
  });
  form.addEventListener("submit", function (event) { event.preventDefault(); });
  form.hidden = false;
  apply();
})();
</script>
</body>
</html>
)";
