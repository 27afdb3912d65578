#include "emulator/emulator_page.h"

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

const std::string& pageTemplate() {
  static const std::string page = R"HTML(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>ostrel-emulator</title>
<style>
 body { font-family: sans-serif; margin: 2em; color: #222; }
 h1 { font-size: 1.4em; } h2 { font-size: 1.1em; margin-top: 1.5em; }
 table { border-collapse: collapse; width: 100%; font-size: 0.9em; }
 td, th { border-bottom: 1px solid #ddd; padding: 4px 8px; text-align: left; vertical-align: top; }
 code { white-space: pre-wrap; word-break: break-all; }
</style></head>
<body>
<h1>ostrel-emulator</h1>
<p id="summary">Loading…</p>
<h2>Events, newest first</h2>
<table><thead><tr><th>arrived</th><th>type</th><th>name</th><th>user</th><th>event</th></tr></thead>
<tbody id="events"><!--EVENTS--></tbody></table>
<h2>Users</h2>
<table><thead><tr><th>id</th><th>e-mail</th><th>MSISDN</th></tr></thead><tbody id="users"></tbody></table>
<script>
function cell(text) { const td = document.createElement('td'); td.textContent = text; return td; }
async function refresh() {
  const events = await (await fetch('/_emulator/events')).json();
  const users = await (await fetch('/_emulator/users')).json();
  document.getElementById('summary').textContent =
      events.count + ' events received, ' + users.users.length + ' users';
  const tbody = document.getElementById('events');
  tbody.replaceChildren(...events.events.slice(0, 200).map(e => {
    const tr = document.createElement('tr');
    tr.append(cell(new Date(e.arrived * 1000).toLocaleTimeString()), cell(e.event.event_type),
              cell(e.event.name || ''), cell(e.event.user_id));
    const code = document.createElement('code'); code.textContent = JSON.stringify(e.event);
    const td = document.createElement('td'); td.append(code); tr.append(td);
    return tr;
  }));
  document.getElementById('users').replaceChildren(...users.users.map(u => {
    const tr = document.createElement('tr');
    tr.append(cell(u.id), cell(u.email), cell(u.msisdn));
    return tr;
  }));
}
refresh(); setInterval(refresh, 1000);
</script>
</body></html>
)HTML";
  return page;
}

}  // namespace

std::string emulatorPage(const Json& newestEvents) {
  std::string rows;
  for (const auto& e : newestEvents) {
    const Json& event = e["event"];
    rows += "<tr><td>" + std::to_string(e.value("arrived", 0.0)) + "</td><td>" +
            escapeHtml(event.value("event_type", "")) + "</td><td>" +
            escapeHtml(event.value("name", "")) + "</td><td>" +
            escapeHtml(event.value("user_id", "")) + "</td><td><code>" +
            escapeHtml(dumpJson(event)) + "</code></td></tr>\n";
  }
  std::string page = pageTemplate();
  page.replace(page.find("<!--EVENTS-->"), 13, rows);
  return page;
}

}  // namespace ostrel::emulator
