// A chart of lanes: what the timeline and the map of phones have in common. The lanes' names at the left and the axis
// on top stay where they are when the rest scrolls, and only the lanes that are looked at are drawn.

const LANE_HEIGHT = 22;       // pixels
const LEVELS = 5;             // of colour, as in the style
const HEIGHT_SHOWN = 0.36;    // of the window, as in the style

// The colour of a count, of which the largest is `most`. The root keeps the small ones apart too.
function levelOf(count, most) {
  return Math.ceil(LEVELS * Math.sqrt(count / most));
}

// A kind of chart has: layOut(lane), the lane's items as {x, half: of its width} from left to right;
// drawLane(parent, items, y), describe(item, lane), the text that tells an item, and activate(item, lane).
class Lanes {
  // Asking the browser for them while things are drawn would cost a layout each time.
  width = 0;  // of the surface's visible part
  left = 0;   // the width of the names
  top = 0;    // how far it is scrolled

  // The caller is asked to draw it when its size is another.
  constructor(root, label, drawAnew) {
    Object.assign(this, {root, drawAnew});
    this.tip = make("div", {className: "tip", hidden: true});
    this.tip.setAttribute("role", "status");
    root.tabIndex = 0;
    root.setAttribute("role", "application");
    root.setAttribute("aria-label", `${label}: arrow keys go from mark to mark, Enter chooses one`);
    [this.corner, this.axis, this.names, this.surface] = ["corner", "axis", "names", "surface"].map(
      name => draw(null, "svg", {class: name, "aria-hidden": true}));
    this.empty = make("p", {className: "hint empty"}, "No report to show.");
    root.append(this.corner, this.axis, this.names, this.surface, this.empty);
    root.after(this.tip);
    root.addEventListener("scroll", () => {
      this.top = root.scrollTop;
      this.#drawVisible();
    });
    new ResizeObserver(() => this.#fit()).observe(root);
    root.addEventListener("keydown", event => this.#press(event));
    root.addEventListener("focus", () => root.matches(":focus-visible") && this.#showCursor());
    root.addEventListener("blur", () => this.#hideCursor());
    this.surface.addEventListener("pointermove", event => this.point(event));
    this.surface.addEventListener("pointerleave", () => this.tell(""));
    this.surface.addEventListener("click", event => this.click(event));
  }

  #fit() {
    const whole = this.root.clientWidth, left = whole < 600 ? 132 : 230;
    if (whole > 0 && whole - left !== this.width) {  // 0: it is not shown
      Object.assign(this, {left, width: whole - left});
      this.drawAnew();
    }
  }

  // Draws the lanes, {key, name, failure, count} each.
  renderLanes(lanes, width, axisHeight) {
    this.lanes = lanes;
    const left = this.left, height = lanes.length * LANE_HEIGHT;
    const sizes = [[this.corner, left, axisHeight], [this.axis, width, axisHeight], [this.names, left, height],
                   [this.surface, width, height]];
    for (const [part, partWidth, partHeight] of sizes) {
      part.setAttribute("width", partWidth);
      part.setAttribute("height", partHeight);
      part.setAttribute("display", lanes.length === 0 ? "none" : "block");
      part.replaceChildren();
    }
    this.empty.hidden = lanes.length > 0;
    this.drawAxis(axisHeight, height);
    this.window = draw(this.surface, "g");
    this.rings = draw(this.surface, "g");
    this.first = null;
    this.#drawVisible();
    if (this.root.matches(":focus-visible")) {
      this.#showCursor();
    }
  }

  itemsOf(lane) {
    lane.items ??= this.layOut(lane);
    return lane.items;
  }

  drawAll() {
    this.#drawVisible(true);
  }

  #drawVisible(all = false) {
    const shown = all ? this.lanes.length : Math.ceil(HEIGHT_SHOWN * screen.height / LANE_HEIGHT) + 6;
    const wanted = all ? 0 : Math.floor(this.top / LANE_HEIGHT) - 1;
    const first = Math.max(0, Math.min(wanted - wanted % 4, this.lanes.length - shown));
    if (first === this.first && !all) {
      return;
    }
    this.first = first;
    this.window.replaceChildren();
    this.names.replaceChildren();
    for (let i = first; i < Math.min(first + shown, this.lanes.length); ++i) {
      this.#drawName(this.lanes[i], i * LANE_HEIGHT + 15);
      this.drawLane(this.window, this.itemsOf(this.lanes[i]), (i + 0.5) * LANE_HEIGHT);
    }
  }

  // The device gives way, as the number at its end tells lanes apart.
  #drawName({name, failure, count}, y) {
    const right = this.left - 6, letter = 7.4;
    const room = Math.floor((right - 6) / letter) - String(count).length - 2;
    const {device, error} = failure, start = Math.max(room - error.length - 1, 2);
    const shown = device.length > start ? `${device.slice(0, start - 1)}…` : device;
    draw(draw(this.names, "text", {class: "lane", x: 6, y}, `${plain(shown)} ${error}`), "title", {}, name);
    draw(this.names, "text", {class: "quiet", x: right, y, "text-anchor": "end"}, count);
  }

  ring(item, lane, name) {
    return draw(this.rings, "rect", {class: `ring ${name}`, x: item.x - item.half, y: lane * LANE_HEIGHT + 1,
                                     width: 2 * item.half, height: LANE_HEIGHT - 2, rx: 4});
  }

  reveal(lane, x) {
    const top = lane * LANE_HEIGHT, {root} = this;
    const height = root.clientHeight - this.axis.clientHeight;
    root.scrollTop = Math.min(top, Math.max(root.scrollTop, top + 2 * LANE_HEIGHT - height));
    root.scrollLeft = Math.min(x - 20, Math.max(root.scrollLeft, x + 20 - this.width));
  }

  // ---- The mouse, or a finger

  pointOf(event) {
    const box = this.surface.getBoundingClientRect();
    return {x: event.clientX - box.left, y: event.clientY - box.top};
  }

  // The item that is nearest in the lane, so that a finger hits it too.
  #itemAt({x, y}) {
    const lane = Math.floor(y / LANE_HEIGHT);
    const item = this.#nearest(lane, x);
    return item && Math.abs(item.x - x) <= Math.max(item.half, this.reach) ? {lane, item} : null;
  }

  #nearest(lane, x) {
    const items = this.lanes[lane] ? this.itemsOf(this.lanes[lane]) : [];
    return items.reduce((best, item) => (!best || Math.abs(item.x - x) < Math.abs(best.x - x) ? item : best), null);
  }

  point(event) {
    const found = this.#itemAt(this.pointOf(event));
    this.tell(found ? this.describe(found.item, this.lanes[found.lane]) : "", event.clientX, event.clientY);
  }

  click(event) {
    const found = this.#itemAt(this.pointOf(event));
    if (found) {
      this.#activate(found);
    }
  }

  #activate({lane, item}) {
    this.cursor = {key: this.lanes[lane].key, x: item.x};
    this.tell("");
    this.activate(item, this.lanes[lane]);
  }

  tell(text, x = 0, y = 0) {
    this.tip.hidden = text === "";
    this.tip.textContent = text;
    if (this.tip.hidden) {
      return;
    }
    const box = this.tip.parentElement.getBoundingClientRect();
    this.tip.style.left = `${Math.max(0, Math.min(x - box.left + 14, box.width - this.tip.offsetWidth))}px`;
    this.tip.style.top = `${y - box.top + 16}px`;
  }

  // ---- The keyboard

  // Where the keys are: the same lane as before, and near the same place, after whatever has been drawn anew.
  #atCursor() {
    const lane = Math.max(0, this.lanes.findIndex(({key}) => key === this.cursor?.key));
    return {lane, item: this.#nearest(lane, this.cursor?.x ?? 0)};
  }

  #press(event) {
    const {lane, item} = this.#atCursor();
    if (!item || event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    const items = this.itemsOf(this.lanes[lane]), place = items.indexOf(item), last = this.lanes.length - 1;
    const along = index => ({lane, item: items[Math.max(0, Math.min(index, items.length - 1))]});
    const across = index => {
      const other = Math.max(0, Math.min(index, last));
      return {lane: other, item: this.#nearest(other, this.cursor?.x ?? item.x)};
    };
    const page = Math.max(1, Math.floor(this.root.clientHeight / LANE_HEIGHT) - 2);
    const moves = {
      ArrowLeft: () => along(place - 1), ArrowRight: () => along(place + 1), Home: () => along(0),
      End: () => along(Infinity), ArrowUp: () => across(lane - 1), ArrowDown: () => across(lane + 1),
      PageUp: () => across(lane - page), PageDown: () => across(lane + page)};
    if (moves[event.key]) {
      const found = moves[event.key]();
      this.cursor = {key: this.lanes[found.lane].key, x: found.item.x};
      this.#showCursor();
    } else if (event.key === "Enter" || event.key === " ") {
      this.#activate({lane, item});
    } else {
      return;
    }
    event.preventDefault();
  }

  #showCursor() {
    const {lane, item} = this.#atCursor();
    this.#hideCursor();
    if (item) {
      this.reveal(lane, item.x);
      this.cursorRing = this.ring(item, lane, "cursor");
      const box = this.cursorRing.getBoundingClientRect();
      this.tell(this.describe(item, this.lanes[lane]), box.right, box.top);
    }
  }

  #hideCursor() {
    this.cursorRing?.remove();
    this.tell("");
  }
}
