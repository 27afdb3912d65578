#include "emulator/emulator_page.h"

#include <ctime>

namespace ostrel::emulator {

namespace {

std::string escapeHtml(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string utcTime(double secs) {
  const auto t = static_cast<std::time_t>(secs);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
  return text;
}

// A field shown as text; events may carry anything, so other types show as "".
std::string textOf(const Json& event, const char* key) {
  if (!event.is_object() || !event.contains(key) || !event[key].is_string()) return "";
  return event[key].get<std::string>();
}

void fill(std::string& page, const std::string& mark, const std::string& with) {
  page.replace(page.find(mark), mark.size(), with);
}

// Events per second over EventRate::kSeconds (300) seconds: two units a second,
// bars between y = 10 and y = 110, minute marks below.
const std::string& pageTemplate() {
  static const std::string page = R"HTML(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>ostrel-emulator</title>
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<style>
 body { font-family: sans-serif; margin: 1.5em 2em; color: #222; }
 header { display: flex; align-items: baseline; gap: 1em; }
 h1 { font-size: 1.4em; margin: 0; } h2 { font-size: 1.05em; margin: 1.4em 0 0.5em; }
 h2 small { font-weight: normal; color: #666; }
 .status { font-size: 0.85em; color: #666; } .status.live::before { content: "\25CF  "; color: #2a2; }
 .status.offline { color: #b22; }
 #rate { width: 100%; max-width: 900px; height: auto; display: block; background: #fafafa; }
 #rate .axis { stroke: #999; } #rate .minute { stroke: #e4e4e4; }
 #rate text { font-size: 9px; fill: #666; } #rate-bars { fill: #3a7bd5; }
 form { display: flex; flex-wrap: wrap; gap: 0.5em 1em; align-items: center; margin-top: 1em; }
 form input { width: 16em; }
 table { border-collapse: collapse; width: 100%; font-size: 0.85em; }
 td, th { border-bottom: 1px solid #ddd; padding: 3px 6px; text-align: left; vertical-align: top; }
 td a { color: inherit; }
 td.id { max-width: 14em; overflow: hidden; text-overflow: ellipsis; white-space: nowrap; }
 td.time { white-space: nowrap; }
 .box { max-height: 16em; overflow-y: auto; }
 code { white-space: pre-wrap; word-break: break-all; font-size: 0.95em; }
 .columns { display: flex; flex-wrap: wrap; gap: 2em; } .columns > section { flex: 1 1 28em; }
</style></head>
<body>
<header><h1>ostrel-emulator</h1><span id="status" class="status">not refreshing</span></header>
<p id="summary"><!--SUMMARY--></p>
<section>
<h2>Events per second, last 5 minutes <small id="rate-peak"></small></h2>
<svg id="rate" viewBox="0 0 600 124" role="img" aria-label="Events per second, last 5 minutes">
 <line class="minute" x1="120" y1="10" x2="120" y2="110"/><line class="minute" x1="240" y1="10" x2="240" y2="110"/>
 <line class="minute" x1="360" y1="10" x2="360" y2="110"/><line class="minute" x1="480" y1="10" x2="480" y2="110"/>
 <path id="rate-bars" d=""/>
 <line class="axis" x1="0" y1="110.5" x2="600" y2="110.5"/>
 <text x="0" y="121">-5 min</text><text x="120" y="121" text-anchor="middle">-4 min</text>
 <text x="240" y="121" text-anchor="middle">-3 min</text><text x="360" y="121" text-anchor="middle">-2 min</text>
 <text x="480" y="121" text-anchor="middle">-1 min</text><text x="600" y="121" text-anchor="end">now</text>
</svg>
</section>
<div class="columns">
<section><h2>Users, newest first</h2><div class="box">
<table><thead><tr><th>id</th><th>e-mail</th><th>MSISDN</th><th>confirmed</th></tr></thead><tbody id="users"></tbody></table></div></section>
<section><h2>Faults served, newest first</h2><div class="box">
<table><thead><tr><th>served</th><th>path</th><th>status</th><th>delay</th><th>dropped</th><th>body</th><th>request</th></tr></thead>
<tbody id="faults"></tbody></table></div></section>
</div>
<form id="filters" method="get" action="/">
 <label>User <input name="user_id" list="user-ids" value="<!--USER_ID-->" autocomplete="off"></label>
 <label>Session <input name="session_id" list="session-ids" value="<!--SESSION_ID-->" autocomplete="off"></label>
 <label>Event type <input name="event_type" list="event-types" value="<!--EVENT_TYPE-->" autocomplete="off"></label>
 <button type="submit">Filter</button> <a id="clear" href="/">Clear</a>
 <datalist id="user-ids"></datalist><datalist id="session-ids"></datalist><datalist id="event-types"></datalist>
</form>
<h2>Events, newest first <small id="events-note"></small></h2>
<table><thead><tr><th>arrived</th><th>type</th><th>name</th><th>user</th><th>session</th><th>event</th></tr></thead>
<tbody id="events"><!--EVENTS--></tbody></table>
<script>
'use strict';
const SECONDS = 300;
const form = document.getElementById('filters');
const FILTERS = ['user_id', 'session_id', 'event_type'];
let change = null;      // what the shown data answers; null: ask without waiting
let skew = 0;           // the emulator's clock minus this one, in seconds
let rate = null;        // {end: the emulator's second, counts: per second, oldest first}
let controller = null;  // aborts the waiting request when the filters change
let wake = null;        // ends the pause between two requests

const $ = id => document.getElementById(id);
const sleep = ms => new Promise(resolve => { wake = resolve; setTimeout(resolve, ms); });
const time = secs => new Date(secs * 1000).toLocaleTimeString();
const count = (n, what) => `${n} ${what}${n === 1 ? '' : 's'}`;

function filters() {
  const query = new URLSearchParams();
  for (const name of FILTERS) {
    const value = form.elements[name].value.trim();
    if (value) query.set(name, value);
  }
  return query;
}

function applyFilters() {
  const query = filters().toString();
  history.replaceState(null, '', query ? '?' + query : '/');
  change = null;
  if (controller) controller.abort();
  if (wake) wake();
}

// A cell; with a filter name, its text is a link that filters by it.
function cell(text, filterName, className) {
  const td = document.createElement('td');
  text = text == null ? '' : String(text);
  if (className) {
    td.className = className;
    td.title = text;
  }
  if (filterName && text) {
    const a = document.createElement('a');
    a.href = '?' + new URLSearchParams({[filterName]: text});
    a.textContent = text;
    a.addEventListener('click', e => {
      e.preventDefault();
      form.elements[filterName].value = text;
      applyFilters();
    });
    td.append(a);
  } else {
    td.textContent = text;
  }
  return td;
}

function row(cells) {
  const tr = document.createElement('tr');
  tr.append(...cells);
  return tr;
}

function codeCell(value) {
  const code = document.createElement('code');
  code.textContent = JSON.stringify(value);
  const td = document.createElement('td');
  td.append(code);
  return td;
}

function choices(id, values) {
  $(id).replaceChildren(...values.map(v => Object.assign(document.createElement('option'), {value: v})));
}

function drawRate() {
  if (!rate) return;
  const end = Math.floor(Date.now() / 1000 + skew);
  const first = end - SECONDS + 1;
  const bars = [];
  let peak = 0;
  rate.counts.forEach((count, i) => {
    const second = rate.end - SECONDS + 1 + i;
    if (count > 0 && second >= first && second <= end) {
      bars.push([second - first, count]);
      peak = Math.max(peak, count);
    }
  });
  $('rate-bars').setAttribute('d', bars.map(([x, count]) =>
      `M${x * 2} 110V${110 - Math.max(1, Math.round(count / peak * 100))}h2V110z`).join(''));
  $('rate-peak').textContent = peak ? `(peak ${peak}/s)` : '(none)';
}

function render(data) {
  change = data.change;
  skew = data.now - Date.now() / 1000;
  rate = {end: Math.floor(data.now), counts: data.per_second};
  drawRate();
  const filtered = filters().toString() !== '';
  $('summary').textContent = `${count(data.received, 'event')} received` +
      (filtered ? `, ${data.matching} match the filter` : '') +
      ` · ${count(data.users.length, 'user')} · ${count(data.faults_served, 'fault')} served`;
  $('events-note').textContent = data.events.length < data.matching ?
      `(the latest ${data.events.length} of ${data.matching})` : '';
  $('events').replaceChildren(...data.events.map(e => {
    const event = e.event || {};
    return row([cell(time(e.arrived), null, 'time'), cell(event.event_type, 'event_type'), cell(event.name),
                cell(event.user_id, 'user_id', 'id'), cell(event.session_id, 'session_id', 'id'),
                codeCell(event)]);
  }));
  $('users').replaceChildren(...data.users.map(u =>
      row([cell(u.id), cell(u.email), cell(u.msisdn), cell(u.confirmed ? 'yes' : 'no')])));
  $('faults').replaceChildren(...data.faults.map(f =>
      row([cell(f.at ? time(f.at) : '', null, 'time'), cell(f.path), cell(f.status || ''),
           cell(f.delay_ms ? f.delay_ms + ' ms' : ''), cell(f.drop ? 'yes' : ''), cell(f.body),
           cell(f.request_bytes + ' bytes')])));
  choices('user-ids', data.choices.user_id);
  choices('session-ids', data.choices.session_id);
  choices('event-types', data.choices.event_type);
}

function setStatus(kind, text) {
  $('status').className = 'status ' + kind;
  $('status').textContent = text;
}

// Each request waits at the emulator until something changes, then the page
// shows it; at most one refresh a second, however busy the emulator is.
async function refreshForever() {
  for (;;) {
    const query = filters();
    if (change !== null) {
      query.set('after', change);
      query.set('wait_ms', 10000);
    }
    controller = new AbortController();
    try {
      const response = await fetch('/_emulator/live?' + query, {signal: controller.signal, cache: 'no-store'});
      if (!response.ok) throw new Error('HTTP ' + response.status);
      render(await response.json());
      setStatus('live', 'live · updated ' + new Date().toLocaleTimeString());
    } catch (e) {
      if (e.name === 'AbortError') continue;
      setStatus('offline', 'the emulator does not answer; trying again');
      change = null;
      await sleep(2000);
      continue;
    }
    await sleep(1000);
  }
}

let typing = null;
form.addEventListener('input', () => { clearTimeout(typing); typing = setTimeout(applyFilters, 300); });
form.addEventListener('submit', e => { e.preventDefault(); applyFilters(); });
$('clear').addEventListener('click', e => {
  e.preventDefault();
  for (const name of FILTERS) form.elements[name].value = '';
  applyFilters();
});
setInterval(drawRate, 1000);
setStatus('', 'connecting');
refreshForever();
</script>
</body></html>
)HTML";
  return page;
}

}  // namespace

std::string emulatorPage(const Json& newestEvents, const EventFilter& filter) {
  std::string rows;
  for (const auto& e : newestEvents) {
    const Json& event = e["event"];
    rows += "<tr><td class=\"time\">" + utcTime(e.value("arrived", 0.0)) + "</td><td>" +
            escapeHtml(textOf(event, "event_type")) + "</td><td>" +
            escapeHtml(textOf(event, "name")) + "</td><td class=\"id\">" +
            escapeHtml(textOf(event, "user_id")) + "</td><td class=\"id\">" +
            escapeHtml(textOf(event, "session_id")) + "</td><td><code>" +
            escapeHtml(dumpJson(event)) + "</code></td></tr>\n";
  }
  std::string page = pageTemplate();
  fill(page, "<!--SUMMARY-->",
       "The latest " + std::to_string(newestEvents.size()) + " events received.");
  fill(page, "<!--USER_ID-->", escapeHtml(filter.userId));
  fill(page, "<!--SESSION_ID-->", escapeHtml(filter.sessionId));
  fill(page, "<!--EVENT_TYPE-->", escapeHtml(filter.eventType));
  fill(page, "<!--EVENTS-->", rows);
  return page;
}

}  // namespace ostrel::emulator
