// The document: the reports, of the columns and tables in which they were written, and what is said about them.
"use strict";

const byId = id => document.getElementById(id);
const {columns, texts, places, problems, paths, phones: phonesRead, filter, made, version, content_max: contentMax,
       processes_max: processesMax} = JSON.parse(byId("document").textContent);

// ---- Texts

// Characters that cannot be seen, or that turn the text around them round.
const HIDDEN = "[\\0-\\x08\\x0b\\x0c\\x0e-\\x1f\\x7f-\\x9f\\xad\\u061c\\u200b-\\u200f\\u2028-\\u202e\\u2060-\\u206f" +
  "\\ufeff\\ufff9-\\ufffb]";
const codeOf = character => `U+${character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}`;

// The text for one line, whatever it holds.
function plain(text) {
  return text.replace(/[\t\r\n]+/g, " ").replace(new RegExp(HIDDEN, "gu"), character => `<${codeOf(character)}>`);
}

function patternOf(text, flags) {
  return new RegExp(text.replace(/[.*+?^${}()|[\]\\/]/g, "\\$&"), flags);
}

const figureOf = count => count.toLocaleString("en");
const counted = (count, one, more = `${one}s`) => `${figureOf(count)} ${count === 1 ? one : more}`;

// A new element. Texts only ever become text nodes.
function make(name, properties = {}, ...children) {
  const node = Object.assign(document.createElement(name), properties);
  node.append(...children);
  return node;
}

function draw(parent, name, attributes = {}, text = "") {
  const node = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) {
    node.setAttribute(key, value);
  }
  node.textContent = text;
  parent?.append(node);
  return node;
}

// ---- Times

const SECOND = 1000, MINUTE = 60 * SECOND, HOUR = 60 * MINUTE, DAY = 24 * HOUR;

// A number of milliseconds as the phone's clock showed it. All reckoning is in UTC, so that no time zone of the one
// who looks, and no change to summer time of his, moves a report.
function stampOf(time) {
  return new Date(time).toISOString().slice(0, 19).replace("T", " ");
}
const dayOf = time => stampOf(time).slice(0, 10);

const knownDays = new Map();  // many reports are of the same day
function startOf(date) {
  if (!knownDays.has(date)) {
    const form = /^(\d{4})-(\d\d)-(\d\d)$/.exec(date);
    const start = form && Date.UTC(form[1], form[2] - 1, form[3]);
    knownDays.set(date, form && dayOf(start) === date ? start : null);
  }
  return knownDays.get(date);
}

function timeOf(date, time) {
  const form = /^(\d\d):(\d\d)(?::(\d\d))?$/.exec(time);
  const start = form && startOf(date);
  if (start === null) {
    return null;
  }
  const [hour, minute, second] = form.slice(1).map(digits => Number(digits ?? 0));
  const exists = hour < 24 && minute < 60 && second <= 60;  // 60 is a leap second
  return exists ? start + hour * HOUR + minute * MINUTE + second * SECOND : null;
}

// ---- Reports

const UNKNOWN = "(not known)";  // a device or error number that the head was cut before
const DUMP = "(dump)";          // which has no head that would tell the device
const textOf = number => (number === null ? null : texts[number]);

const failures = new Map();  // each device and error number
const reports = columns.number.map((number, index) => {
  const text = name => textOf(columns[name][index]);
  const report = {
    index, number, phone: text("phone"), kind: text("kind"), date: text("date"), time: text("time"),
    at: timeOf(text("date"), text("time")), device: text("device") ?? (text("kind") === "dump" ? DUMP : UNKNOWN),
    error: String(columns.error[index] ?? UNKNOWN), test_switch: text("test_switch"), bytes: columns.bytes[index],
    cut: columns.cut[index] === 1, damaged: columns.damaged[index] === 1,
  };
  const key = `${report.error} ${report.device}`;
  if (!failures.has(key)) {
    failures.set(key, {key, device: report.device, error: report.error, name: text("name") ?? ""});
  }
  report.failure = failures.get(key);
  return report;
});
const {compare} = new Intl.Collator("en", {numeric: true});
const phones = [...new Set([...phonesRead.map(textOf), ...reports.map(report => report.phone)])].sort(compare);

const byTime = reports.filter(report => report.at !== null).sort((a, b) => a.at - b.at || a.number - b.number);
const earliest = byTime[0]?.at ?? Infinity, latest = byTime.at(-1)?.at ?? -Infinity;

// The time that most reports are of: a phone whose clock is years off does not squeeze all others into one bar. Days
// that half a year without a report parts are apart.
function mainTimesOf(list) {
  const best = {from: earliest, to: latest, count: 0};
  for (let start = 0, end = 0; start < list.length; start = end) {
    for (end = start + 1; end < list.length && list[end].at - list[end - 1].at < 183 * DAY; ++end) {}
    if (end - start > best.count) {
      Object.assign(best, {from: list[start].at, to: list[end - 1].at, count: end - start});
    }
  }
  return best;
}
const mainTimes = mainTimesOf(byTime);

const contentOf = report => textOf(columns.content[report.index]);
const isDump = report => report.kind === "dump";
const isTest = report => report.test_switch === "on";
const ordered = text => Number(text) || 0;  // what error numbers are sorted by

// The first line of the content that is not blank, with its numbers masked: what is alike then, is one failure.
const NUMBERS = /(?<![A-Za-z0-9_])(0x[0-9A-Fa-f]+|[0-9]+)/g;
const likes = new Map();  // by the number of the text
function likeOf(report) {
  const number = columns.content[report.index];
  if (!likes.has(number)) {
    const [line] = /\S[^\r\n]*/.exec(isDump(report) ? "" : textOf(number)) ?? ["(no text)"];
    likes.set(number, line.slice(0, 400).replace(NUMBERS, "#"));
  }
  return likes.get(number);
}

// What the text is found in: for each report, whether it is in one of its texts.
function finderOf(text) {
  const pattern = patternOf(text, "iu");
  const found = texts.map(candidate => pattern.test(candidate));
  const isFound = number => number !== null && found[number];
  const placeFound = places.map(([file, member]) => isFound(file) || isFound(member));
  const searched = ["phone", "device", "name", "content", "processes", "archive"].map(name => columns[name]);
  return ({index}) => searched.some(column => isFound(column[index])) ||
    columns.places[index].some(place => placeFound[place]) ||
    columns.attachments[index].some(([name]) => isFound(name));
}

// ---- Words for reports

function notesOf(report) {
  return [report.damaged && "damaged", report.cut && "cut", isDump(report) && "dump", isTest(report) && "test on"]
    .filter(Boolean).join(", ");
}

const whenOf = report => plain(`${report.date ?? "no date"} ${report.time ?? ""}`);
const nameOf = ({device, error, name}) => plain(`${device} ${error}${name ? ` ${name}` : ""}`);
const titleOf = report => `No. ${report.number}: ${nameOf(report.failure)}`;
const phoneLine = report => (phones.length > 1 ? plain(report.phone) : "");

const beginningOf = report => plain((contentOf(report) ?? "").slice(0, 400).trimStart().slice(0, 160));
const REPORT_COLUMNS = [
  {name: "number", title: "No.", look: "figure minor spare", of: report => report.number},
  {name: "when", title: "When", of: report => report.at ?? report.time, show: whenOf},
  {name: "phone", title: "Phone", look: "fleet", of: report => report.phone, show: phoneLine},
  {name: "device", title: "Device", of: report => report.device, show: report => plain(report.device)},
  {name: "error", title: "Error", look: "figure", of: report => ordered(report.error), show: report => report.error},
  {name: "notes", title: "Notes", look: "minor", of: notesOf},
  {name: "bytes", title: "Bytes", look: "figure minor spare", of: report => report.bytes,
   show: report => figureOf(report.bytes)},
  {name: "begins", title: "Begins with", look: "minor", of: beginningOf},
];
