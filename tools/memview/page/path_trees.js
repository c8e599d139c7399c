// The call paths as trees to be drawn: merged by function or by line, folded, turned round, cut down to what leads to one
// place. A node is {frame, key, line, value, own, before, after, parent, children}.
const FRAME_ALL = 0;

// "vector<T>::push_back" of "std::vector<T>::push_back(T&&)": the last names, for boxes with little room.
function shortName(name) {
  let depth = 0, end = name.length, begin = 0;
  for (let i = 0; i < name.length; ++i) {
    const c = name[i];
    if (c === '(' && depth === 0 && i > begin && !name.startsWith('(anonymous', i) && !name.startsWith('operator', i - 8)) { end = i; break; }
    if (c === '<' || c === '(' || c === '{') ++depth;
    else if ((c === '>' && name[i - 1] !== '-') || c === ')' || c === '}') --depth;
    else if (c === ':' && name[i + 1] === ':' && depth === 0) begin = ++i + 1;
  }
  return name.slice(begin, end) || name;
}

// Places are functions of a module; their lines may count as places of their own.
function flameFrames(flame) {
  const functions = new Map();
  return flame.frames.map(([name, file, line, module, filtered], id) => {
    const key = name + ' ' + file + ' ' + module;
    if (!functions.has(key)) functions.set(key, id);
    const whole = textOf(name);
    return {
      id, func: functions.get(key), whole, name: readableOf(name), file: textOf(file), line, module: textOf(module),
      filtered: filtered === 1, extra: whole === '(others)' || whole === '(deeper)',
    };
  });
}

// What a comparison draws is made of its two sides.
function flameMeasures(flame) {
  if (!flame.comparison) return flame.measures;
  const [before, after] = flame.measures.map((measure) => measure.own);
  const made = (key, title, own) => ({ key, title, own, unit: flame.measures[0].unit });
  return [
    made('grown', 'Grown', after.map((value, i) => Math.max(0, value - before[i]))),
    made('shrunk', 'Shrunk', after.map((value, i) => Math.max(0, before[i] - value))),
    made('after', 'After', after), made('before', 'Before', before),
  ];
}

class PathTrees {
  constructor(flame) {
    this.frames = flameFrames(flame);
    this.measures = flameMeasures(flame);
    this.sides = flame.comparison ? flame.measures.map((measure) => measure.own) : null;
    this.frameOf = flame.node_frames;
    this.parents = flame.parents.map((distance, node) => node - distance);
    this.charged = this.chargedNodes();
  }

  measure(key) { return this.measures.find((one) => one.key === key); }

  // By node, the nearest one outwards whose place answers for what is allocated there.
  chargedNodes() {
    const charged = new Array(this.parents.length).fill(0);
    for (let node = 1; node < charged.length; ++node) {
      charged[node] = this.frames[this.frameOf[node]].filtered ? charged[this.parents[node]] : node;
    }
    return charged;
  }

  // `only` restricts to what is charged to a place or module, or to what passes through a function:
  // {kind: 'site', file, line, module, whole}, {kind: 'module', module}, {kind: 'through', func}
  matches(only, frame) {
    if (only.kind === 'through') return frame.func === only.func;
    if (only.kind === 'module') return frame.module === only.module;
    return frame.file === only.file && frame.whole === only.whole && frame.module === only.module &&
      (frame.line === only.line || frame.line === 0);
  }

  // The node where the paths of `only` begin when allocators are at the root; 0 when this path is none of them.
  start(only, node) {
    if (!only) return node;
    if (only.kind !== 'through') {
      const charged = this.charged[node];
      return charged && this.matches(only, this.frames[this.frameOf[charged]]) ? charged : 0;
    }
    while (node && !this.matches(only, this.frames[this.frameOf[node]])) node = this.parents[node];
    return node;
  }

  // Whether anything at all is charged to the place or module.
  has(only) {
    this.chargedTo ??= new Set([...new Set(this.charged)].filter((node) => node).flatMap((node) => {
      const { module, file, line, whole } = this.frames[this.frameOf[node]];
      return [module, [module, file, line, whole].join('\n')];
    }));
    if (only.kind === 'module') return this.chargedTo.has(only.module);
    return [only.line, 0].some((line) => this.chargedTo.has([only.module, only.file, line, only.whole].join('\n')));
  }

  // The frames from a node outwards, as the view wants them.
  chain(node, view) {
    const chain = [];
    const seen = new Set();
    for (; node; node = this.parents[node]) {
      const frame = this.frames[this.frameOf[node]];
      const key = view.lines ? frame.id : frame.func;
      if (view.foldFiltered && frame.filtered) continue;
      if (view.foldRecursion && seen.has(key)) {
        while (chain[chain.length - 1].key !== key) seen.delete(chain.pop().key);
        continue;
      }
      seen.add(key);
      chain.push({ frame, key });
    }
    return chain;
  }

  build(view) {
    const made = new PathView(this.frames[FRAME_ALL]);
    const own = this.measure(view.measure).own;
    for (let node = 0; node < own.length; ++node) {
      const sides = this.sides ? [this.sides[0][node], this.sides[1][node]] : [0, 0];
      if (own[node] <= 0 && !sides[0] && !sides[1]) continue;
      const start = this.start(view.only, node);
      if (view.only && !start) continue;
      const chain = this.chain(view.mode === 'allocators' ? start : node, view);
      if (view.mode !== 'allocators') chain.reverse();
      made.add(chain, Math.max(0, own[node]), sides);
    }
    return made.finish();
  }
}

class PathView {
  constructor(frame) { this.root = this.node(frame, 0, null); }

  node(frame, key, parent) {
    return { frame, key, line: frame.line, value: 0, own: 0, before: 0, after: 0, parent, byKey: null, children: [] };
  }

  add(chain, value, [before, after]) {
    let node = this.root;
    const count = () => { node.value += value; node.before += before; node.after += after; };
    count();
    for (const { frame, key } of chain) {
      node.byKey ??= new Map();
      let next = node.byKey.get(key);
      if (!next) {
        next = this.node(frame, key, node);
        node.byKey.set(key, next);
        node.children.push(next);
      } else if (next.line !== frame.line) next.line = 0;
      node = next;
      count();
    }
    node.own += value;
  }

  // Children by size; those without any are left out.
  finish() {
    const open = [this.root];
    while (open.length) {
      const node = open.pop();
      node.children = node.children.filter((child) => child.value > 0).sort((a, b) => b.value - a.value);
      open.push(...node.children);
    }
    return this.root;
  }
}

// The keys from the root down to a node, and the node that such keys lead to, as far as they do.
function keysOf(node) {
  const keys = [];
  for (; node.parent; node = node.parent) keys.unshift(node.key);
  return keys;
}

function nodeAt(root, keys) {
  let node = root;
  for (const key of keys) {
    const next = node.byKey?.get(key);
    if (!next || next.value <= 0) break;
    node = next;
  }
  return node;
}
