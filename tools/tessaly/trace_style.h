// What chart and page look like, and what the page does. No part of it comes from a trace.
#pragma once

#include <string_view>

namespace tessaly::tool::trace {

inline constexpr std::string_view STYLE = R"(
:root { --paper: #fbfbf9; --ink: #22262c; --soft: #6a717c; --line: #e4e5e2; --lane: #cfd2d0; --card: #ffffff; --edge: #dcdedb;
  --bar: #7f9fbf; --quick: #a9bdd0; --data: #2f6fae; --control: #8a929d; --bad: #c23b2e; --told: #8c6fb0; --tip: #22262c;
  --tip-ink: #f4f4f2; }
@media (prefers-color-scheme: dark) {
:root { --paper: #17191d; --ink: #e3e5e8; --soft: #98a0ab; --line: #24282e; --lane: #3a4048; --card: #1f2329; --edge: #343a42;
  --bar: #6d94bd; --quick: #57718c; --data: #6fb0ee; --control: #808a96; --bad: #ff7d6e; --told: #b79be0; --tip: #e9eaec;
  --tip-ink: #1c1f24; } }
svg { font: 12px system-ui, "Segoe UI", "Noto Sans", "DejaVu Sans", sans-serif; font-variant-numeric: tabular-nums; }
svg text { fill: var(--ink); }
.paper { fill: var(--paper); }
.lane { stroke: var(--lane); stroke-width: 1.5; }
.row { stroke: var(--line); }
line.pause { stroke: var(--lane); stroke-dasharray: 2 5; }
svg text.time, svg text.unit, svg text.pause { fill: var(--soft); text-anchor: end; font-size: 11px; }
svg text.pause { font-style: italic; }
.tp rect { fill: var(--card); stroke: var(--edge); }
.tp .name { font-weight: 600; font-size: 13px; }
svg text.of { fill: var(--soft); font-size: 11px; }
.label { paint-order: stroke; stroke: var(--paper); stroke-width: 4px; stroke-linejoin: round; font-weight: 500; }
svg .label .soft { fill: var(--soft); font-weight: 400; }
svg .label.wrong, svg .label.wrong .soft { fill: var(--bad); }
.v rect { fill: var(--bar); }
.v.quick rect { fill: var(--quick); }
.v.bad rect { fill: var(--bad); }
.v.told rect { fill: var(--told); }
.v.open rect { fill: none; stroke: var(--bar); stroke-width: 1.5; stroke-dasharray: 3 3; }
.a path { fill: none; stroke-width: 1.6; }
.a text { text-anchor: end; font-size: 10.5px; paint-order: stroke; stroke: var(--paper); stroke-width: 3px;
  stroke-linejoin: round; }
.a.data path { stroke: var(--data); marker-end: url(#to-data); } svg .a.data text { fill: var(--data); }
.a.control path { stroke: var(--control); stroke-dasharray: 5 3; marker-end: url(#to-control); }
  svg .a.control text { fill: var(--soft); }
.a.error path { stroke: var(--bad); marker-end: url(#to-error); } svg .a.error text { fill: var(--bad); }
#to-data path { fill: var(--data); } #to-control path { fill: var(--control); } #to-error path { fill: var(--bad); }
)";

inline constexpr char MARKERS[] =
    "<defs><marker id=\"to-data\" viewBox=\"0 0 8 8\" refX=\"6\" refY=\"4\" markerWidth=\"6\" markerHeight=\"6\" orient=\"auto\">"
    "<path d=\"M0 0L8 4L0 8z\"/></marker>"
    "<marker id=\"to-control\" viewBox=\"0 0 8 8\" refX=\"6\" refY=\"4\" markerWidth=\"6\" markerHeight=\"6\" orient=\"auto\">"
    "<path d=\"M0 0L8 4L0 8z\"/></marker>"
    "<marker id=\"to-error\" viewBox=\"0 0 8 8\" refX=\"6\" refY=\"4\" markerWidth=\"6\" markerHeight=\"6\" orient=\"auto\">"
    "<path d=\"M0 0L8 4L0 8z\"/></marker></defs>\n";

inline constexpr std::string_view PAGE_STYLE = R"(
html { color-scheme: light dark; background: var(--paper); color: var(--ink); }
body { margin: 0; font: 14px/1.45 system-ui, "Segoe UI", "Noto Sans", "DejaVu Sans", sans-serif; }
header { padding: 18px 26px 10px; }
h1 { font-size: 19px; font-weight: 600; margin: 0 0 2px; }
h2 { font-size: 15px; font-weight: 600; margin: 26px 26px 8px; }
header p { margin: 0; color: var(--soft); }
.keys { display: flex; flex-wrap: wrap; gap: 6px 20px; align-items: center; padding: 6px 26px 10px; color: var(--soft);
  font-size: 12.5px; }
.keys i { display: inline-block; width: 14px; height: 10px; border-radius: 3px; margin-right: 6px; vertical-align: -1px; }
.keys button { font: inherit; color: var(--ink); background: var(--card); border: 1px solid var(--edge); border-radius: 6px;
  padding: 2px 10px; }
.scroll { overflow: auto; max-height: 78vh; border-top: 1px solid var(--edge); border-bottom: 1px solid var(--edge); }
.scroll svg { display: block; }
.scroll svg.head { position: sticky; top: 0; background: var(--paper); z-index: 1; }
.v { cursor: pointer; } .v:hover rect { filter: brightness(0.85); } .dim { opacity: 0.16; }
#tip { position: fixed; display: none; pointer-events: none; white-space: pre; background: var(--tip); color: var(--tip-ink);
  border-radius: 8px;
  padding: 9px 12px; font: 12px/1.5 ui-monospace, "DejaVu Sans Mono", monospace; box-shadow: 0 6px 24px #0004; z-index: 2; }
pre { margin: 0 26px 30px; font: 12.5px/1.6 ui-monospace, "DejaVu Sans Mono", monospace; overflow-x: auto; }
)";

// Text reaches the page by textContent alone.
inline constexpr std::string_view PAGE_SCRIPT = R"(
const tip = document.getElementById('tip'), scroll = document.querySelector('.scroll');
scroll.addEventListener('mousemove', e => {
  const verb = e.target.closest('.v');
  tip.style.display = verb ? 'block' : 'none';
  if (!verb) return;
  tip.textContent = verb.querySelector('desc').textContent;
  tip.style.left = Math.max(4, Math.min(e.clientX + 16, innerWidth - tip.offsetWidth - 8)) + 'px';
  tip.style.top = Math.max(4, Math.min(e.clientY + 16, innerHeight - tip.offsetHeight - 8)) + 'px';
});
scroll.addEventListener('mouseleave', () => tip.style.display = 'none');
let picked = null;
scroll.addEventListener('click', e => {
  const one = e.target.closest('[data-c]');
  picked = one && one.dataset.c !== '0' && one.dataset.c !== picked ? one.dataset.c : null;
  for (const each of scroll.querySelectorAll('[data-c]'))
    each.classList.toggle('dim', picked !== null && each.dataset.c !== picked);
});
let zoom = 1;
function scale(by) {
  zoom = by ? Math.min(4, Math.max(0.25, zoom * by)) : scroll.clientWidth / scroll.querySelector('svg').viewBox.baseVal.width;
  for (const svg of scroll.querySelectorAll('svg')) {
    svg.setAttribute('width', svg.viewBox.baseVal.width * zoom);
    svg.setAttribute('height', svg.viewBox.baseVal.height * zoom);
  }
}
document.getElementById('in').onclick = () => scale(1.25);
document.getElementById('out').onclick = () => scale(0.8);
document.getElementById('fit').onclick = () => scale(0);
)";

}  // namespace tessaly::tool::trace
