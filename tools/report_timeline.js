// The timeline: a lane for each device and error number, a mark for each report or for many that stand close.

const SHORTEST_RANGE = 10 * SECOND;  // reports carry whole seconds: there they stand apart
const RADIUS = 5;
const BIN = 24;       // pixels within which marks that would cover each other become one
const MARGIN = 26;    // at both ends, for half of a tick's label
const TICKS_LEAST = 3;

// Where the time axis can have ticks: at round times.
const STEPS = [
  ...[[SECOND, 1, 2, 5, 10, 15, 30], [MINUTE, 1, 2, 5, 10, 15, 30], [HOUR, 1, 2, 3, 6, 12], [DAY, 1, 2, 7]]
    .flatMap(([unit, ...counts]) => counts.map(count => ({length: count * unit}))),
  ...[1, 2, 3, 6, 12, 24, 60, 120, 600, 1200, 12000].map(months => ({length: months * 30 * DAY, months}))];
const MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split(" ");

function timesOf({length, months}, from, to) {
  const times = [];
  if (months) {
    const start = new Date(from);
    let month = Math.ceil((start.getUTCFullYear() * 12 + start.getUTCMonth()) / months) * months;
    for (; Date.UTC(0, month - 1900 * 12) <= to; month += months) {
      times.push(Date.UTC(0, month - 1900 * 12));
    }
  } else {
    const origin = length === 7 * DAY ? 4 * DAY : 0;  // a Monday
    for (let time = origin + Math.ceil((from - origin) / length) * length; time <= to; time += length) {
      times.push(time);
    }
  }
  return times.filter(time => time >= from);
}

// The label of a tick, and what it is a part of.
function labelOf(time, {length, months}) {
  const [date, clock] = stampOf(time).split(" ");
  const [year, month, day] = date.split("-");
  if (months) {
    return months < 12 ? [MONTHS[month - 1], year] : [year, ""];
  }
  return length >= DAY ? [`${Number(day)} ${MONTHS[month - 1]}`, year]
                       : [length < MINUTE ? clock : clock.slice(0, 5), date];
}

// At most so many ticks, but no fewer than tell a direction.
function ticksOf(from, to, most) {
  const fitting = STEPS.findIndex(({length}) => (to - from) / length <= most);
  const finer = timesOf(STEPS.at(fitting), from, to).length < TICKS_LEAST ? 1 : 0;
  const step = STEPS.at(fitting > 0 ? fitting - finer : fitting);
  let context = "";
  return timesOf(step, from, to).map(time => {
    const [label, part] = labelOf(time, step);
    const tick = {time, label, context: part === context ? "" : part};
    context = part;
    return tick;
  });
}

// Reports in the order of time, by the bins they are in: [bin, start, end] each. There may be thousands in a bin, so
// its end is looked for by halves.
function binsOf(reports, xOf) {
  const binOf = index => Math.floor(xOf(reports[index].at) / BIN);
  const bins = [];
  for (let start = 0; start < reports.length; start = bins.at(-1)[2]) {
    const bin = binOf(start);
    let inside = start, end = reports.length;
    while (end - inside > 1) {
      const middle = (inside + end) >> 1;
      [inside, end] = binOf(middle) === bin ? [middle, end] : [inside, middle];
    }
    bins.push([bin, start, end]);
  }
  return bins;
}

// The reports of one lane as marks. Those that would cover each other become one.
function marksOf(reports, xOf) {
  const marks = [];
  for (const [bin, start, end] of binsOf(reports, xOf)) {
    const members = reports.slice(start, end), left = bin * BIN + RADIUS + 1, right = (bin + 1) * BIN - RADIUS - 1;
    const xs = members.slice(0, 3).map(report => Math.min(Math.max(xOf(report.at), left), right));
    if (xs.length < 3 && xs.every((x, i) => i === 0 || x - xs[i - 1] >= 2 * RADIUS + 2)) {
      marks.push(...members.map((report, i) => ({x: xs[i], half: RADIUS + 4, reports: [report]})));
    } else {
      marks.push({x: (bin + 0.5) * BIN, half: BIN / 2 + 1, reports: members});
    }
  }
  return marks;
}

// Draws a mark around 0, 0. Kind, a missing end and the test switch show in its shape, and do not exclude each other.
// A mark of many shows what all of them have: where there are hundreds, nearly each has some of everything.
function drawMark(parent, reports, level) {
  const many = reports.length > 1;
  const dump = reports.every(isDump);
  const cut = reports.every(report => report.cut || report.damaged);
  const group = draw(parent, "g", {class: `mark level-${level}${cut ? " cut" : ""}${many ? " many" : ""}`,
                                   "data-count": reports.length, "data-number": reports[0].number});
  if (many) {
    draw(group, "rect", {class: "shape", x: -BIN / 2 + 1.5, y: -7, width: BIN - 3, height: 14, rx: dump ? 1 : 7});
    const count = reports.length < 1000 ? reports.length : `${Math.floor(reports.length / 1000)}k`;
    draw(group, "text", {y: 3.5}, count);
  } else if (dump) {
    draw(group, "path", {class: "shape", d: "M0-5.5L5.5 0 0 5.5-5.5 0z"});
  } else {
    draw(group, "circle", {class: "shape", r: RADIUS - 0.5});
  }
  if (reports.every(isTest)) {
    draw(group, "rect", {class: "switch", x: -6, y: 8, width: 12, height: 2});
  }
  return group;
}

class Timeline extends Lanes {
  reach = BIN / 2;
  pressed = null;

  // The caller is told of a report or a range that was chosen.
  constructor(root, {choose, setRange, drawAnew}) {
    super(root, "Timeline", drawAnew);
    Object.assign(this, {choose, setRange});
    this.surface.addEventListener("pointerdown", event => {
      this.pressed = event.button === 0 ? this.pointOf(event).x : null;
    });
    this.surface.addEventListener("pointerup", event => this.#release(event));
    this.surface.addEventListener("pointercancel", () => this.#takeSpan());
  }

  // Draws the reports, which have a time in the range and are in its order. Returns how many lanes there are.
  render(reports, range, chosen) {
    this.range = range;
    this.#takeSpan();
    const lanes = [...Map.groupBy(reports, report => report.failure)].map(
      ([failure, members]) => ({key: failure.key, name: nameOf(failure), failure, count: members.length, members}));
    lanes.sort((a, b) => b.count - a.count);
    this.most = 1;
    for (const {members} of lanes) {
      for (const [, start, end] of binsOf(members, time => this.#xOf(time))) {
        this.most = Math.max(this.most, end - start);
      }
    }
    this.renderLanes(lanes, this.width, 36);
    this.show(chosen);
    return lanes.length;
  }

  drawAxis(axisHeight, height) {
    const {from, to} = this.range;
    const ends = {15: 0, 30: 0};  // how far each line is written
    const write = (name, x, y, text) => {
      const half = text.length * 3.3;
      if (text !== "" && x - half >= ends[y]) {
        draw(this.axis, "text", {class: name, x, y, "text-anchor": "middle"}, text);
        ends[y] = x + half + 2;
      }
    };
    for (const {time, label, context} of ticksOf(from, to, this.width / (this.width < 500 ? 50 : 75))) {
      const x = this.#xOf(time);
      draw(this.surface, "line", {class: "grid", x1: x, x2: x, y1: 0, y2: height});
      write("tick", x, 15, label);
      write("quiet", Math.max(x, 38), 30, context);
    }
  }

  layOut(lane) {
    return marksOf(lane.members, time => this.#xOf(time));
  }

  drawLane(parent, marks, y) {
    for (const {x, reports} of marks) {
      drawMark(parent, reports, levelOf(reports.length, this.most))
        .setAttribute("transform", `translate(${x.toFixed(1)} ${y})`);
    }
  }

  // Shows which mark the chosen report is in.
  show(chosen) {
    this.chosenNodes?.forEach(node => node.remove());
    this.chosenNodes = [];
    const lane = chosen ? this.lanes.findIndex(({failure}) => failure === chosen.failure) : -1;
    const mark = lane >= 0 && this.itemsOf(this.lanes[lane]).find(({reports}) => reports.includes(chosen));
    if (mark) {
      this.reveal(lane, mark.x);
      this.chosenNodes = [
        draw(this.rings, "line", {class: "guide", x1: mark.x, x2: mark.x, y1: 0, y2: lane * LANE_HEIGHT}),
        this.ring(mark, lane, "chosen")];
    }
  }

  describe({reports: members}) {
    if (members.length === 1) {
      const [report] = members;
      return [titleOf(report), phoneLine(report), whenOf(report), counted(report.bytes, "byte"), notesOf(report)]
        .filter(Boolean).join("\n");
    }
    const first = members[0].at, last = members.at(-1).at;
    const on = new Set(members.map(report => report.phone)).size;
    const some = [["cut", ({cut}) => cut], ["of damaged files only", ({damaged}) => damaged],
                  ["with the test switch on", isTest], ["dumps", isDump]]
      .map(([name, test]) => [members.filter(test).length, name]).filter(([count]) => count > 0);
    return [counted(members.length, "report") + (phones.length > 1 ? ` on ${counted(on, "phone")}` : ""),
            ...some.map(([count, name]) => `${count} ${name}`),
            stampOf(first), first !== last && `to ${stampOf(last)}`,
            first === last ? "choose to see one after the other" : "choose to zoom in"].filter(Boolean).join("\n");
  }

  activate({reports: members}) {
    const first = members[0].at, last = members.at(-1).at;
    if (first === last) {
      this.choose(members);
    } else {
      const margin = Math.max((last - first) / 20, (SHORTEST_RANGE - (last - first)) / 2, SECOND);
      this.setRange(first - margin, last + margin);
    }
  }

  #xOf(time) {
    const {from, to} = this.range;
    return MARGIN + (time - from) / (to - from) * (this.width - 2 * MARGIN);
  }

  #timeAt(x) {
    const {from, to} = this.range;
    const part = (x - MARGIN) / (this.width - 2 * MARGIN);
    return from + Math.min(Math.max(part, 0), 1) * (to - from);
  }

  // ---- A range that is dragged

  point(event) {
    const {x} = this.pointOf(event);
    if (event.buttons === 0) {
      this.pressed = null;  // it was released elsewhere
    }
    if (this.pressed !== null && !this.span && Math.abs(x - this.pressed) > 5) {
      this.surface.setPointerCapture(event.pointerId);
      this.span = draw(this.rings, "rect", {class: "span", y: 0, height: this.surface.clientHeight});
    }
    if (!this.span) {
      super.point(event);
      return;
    }
    this.span.setAttribute("x", Math.min(x, this.pressed));
    this.span.setAttribute("width", Math.abs(x - this.pressed));
    this.tell(this.#timesFrom(x).map(stampOf).join("\nto "), event.clientX, event.clientY);
  }

  #release(event) {
    if (this.span) {
      const range = this.#timesFrom(this.pointOf(event).x);
      this.#takeSpan();
      this.setRange(...range);
    }
  }

  click(event) {
    if (this.pressed !== null) {  // it is not the end of a range
      super.click(event);
    }
    this.pressed = null;
  }

  #timesFrom(x) {
    return [this.pressed, x].sort((a, b) => a - b).map(end => this.#timeAt(end));
  }

  #takeSpan() {
    this.span?.remove();
    Object.assign(this, {pressed: null, span: null});
    this.tell("");
  }
}
